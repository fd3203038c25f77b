"""What the engine says in more than one place."""

EGN_HELP = """\
  egn display status|application|statistic
  egn debugging debug-level error|warning|info|packet on|off
  egn debugging statistic on|off
  egn debugging detect-threshold PACKETS
  egn reset statistic|all
  egn help
"""
