# Completion of nqecli's commands, options and table names for bash: source this file.
# _nqecli_engine_words AT WORDS...: what can follow the words typed so far; AT is the place of "engine" among them. The
# engine itself tells.
_nqecli_engine_words() {
  local at=$1
  shift
  local ask=("${@:1:at+1}") typed=("${@:at+2}")
  case ${typed[*]} in
    '') "${ask[@]}" help 2>/dev/null | awk '{ print $1 }' ;;
    region | 'region '*) ((${#typed[@]} < 3)) && "${ask[@]}" "${typed[@]}" 2>/dev/null | awk '{ print $1 }' ;;
  esac
}

# _nqecli_perf_words WORDS...: what can follow the words behind "perf".
_nqecli_perf_words() {
  case $* in
    '') echo task ;;
    task) echo set show topdown show_graph show_active_node clear disable ;;
    'task set') echo time icache dcache task_path snapshot ;;
    'task topdown') echo avg total ;;
  esac
}

_nqecli() {
  local current=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]} command='' i
  for ((i = 1; i < COMP_CWORD; ++i)); do
    case ${COMP_WORDS[i]} in
      --arena | --snapshot | --trust) ((++i)) ;;
      -*) ;;
      *) command=${COMP_WORDS[i]} && break ;;
    esac
  done
  case $previous in
    --arena | --snapshot | snapshot) mapfile -t COMPREPLY < <(compgen -f -- "$current") && return ;;
  esac
  case $command in
    '') mapfile -t COMPREPLY < <(compgen -W 'diag pkt_trace pmc perf tables show snapshot engine agent
                                             --arena --snapshot --trust --help --version' -- "$current") ;;
    show) ((i + 1 == COMP_CWORD)) && mapfile -t COMPREPLY < <(
      compgen -W "$("${COMP_WORDS[0]}" tables 2>/dev/null | awk '/^[0-9]/ { print $2 }')" -- "$current") ;;
    engine) mapfile -t COMPREPLY < <(
      compgen -W "$(_nqecli_engine_words "$i" "${COMP_WORDS[@]:0:COMP_CWORD}")" -- "$current") ;;
    pmc) mapfile -t COMPREPLY < <(compgen -W "$(seq 12) stop" -- "$current") ;;
    perf) mapfile -t COMPREPLY < <(compgen -W "$(_nqecli_perf_words "${COMP_WORDS[@]:i+1:COMP_CWORD-i-1}")" -- "$current") ;;
    agent) ((i + 1 == COMP_CWORD)) && mapfile -t COMPREPLY < <(
      compgen -W "$("${COMP_WORDS[0]}" agent 2>/dev/null | awk '/^  [a-z0-9-]+$/ { print $1 }')" -- "$current") ;;
    diag) mapfile -t COMPREPLY < <(compgen -W 'search nqpTable clear cpcar status' -- "$current") ;;
  esac
}
complete -F _nqecli nqecli
