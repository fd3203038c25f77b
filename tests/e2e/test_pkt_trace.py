"""The packet trace of a running engine: conditions set by one process and shown by the next."""

import shutil

from conftest import nqecli

RULE = "=" * 53
CONTROLS = """\
 DebugFlag                : {debug}
 LeftPrintNum             : {left}
 ToolCheck                : 0
 PrintConsole             : 0
 Print2Log                : 0
 PrintLen                 : 0
"""


def shown(debug, left, conditions):
    head = f"\n Packet Trace Condition Info\n{RULE}\n"
    return head + CONTROLS.format(debug=debug, left=left) + conditions + f"\n{RULE}\n"


NOTHING = " Condition                : 0"
ONE_SOURCE = """\
 Condition                : 0x0000000010000800
 Timeout                  : 0
 NotFlag                  : 0
 InnerFlag                : 0
 EapKeyFlag               : 0
 CapwapKaFlag             : 0
 PppoeKaFlag              : 0
 fromCpFlag               : 0
 CapwapFrag               : 0
 SrcFwdifindex            : 0
 DstFwdifindex            : 0
 PktLenRange              : (0, 0)
 Smac                     : 00:00:00:00:00:00
 Dmac                     : 00:00:00:00:00:00
 EthType                  : 0x0
 Vlan                     : 0
 tcpFlag                  : 0
 SrcIp                    : 0x700010a
 DstIp                    : 0x0
 IpProtocol               : 0
 IpType                   : 0
 IcmpType                 : 0
 DiscardType              : 
 IPV6 SrcIP: 0000:0000:0000:0000:0000:0000:0000:0000
 IPV6 DstIP: 0000:0000:0000:0000:0000:0000:0000:0000
 TcpUdpSrcPort            : 0
 TcpUdpDstPort            : 0
 CapwapAllFragment        : 0"""


def test_conditions_last_from_one_call_to_the_next(engine):
    engine.cli("pkt_trace", "show").answered(shown(0, 0, NOTHING))
    engine.cli("pkt_trace", "set", "sip", "10.1.0.7").answered("packet trace set sip ok\n")
    engine.cli("pkt_trace", "set", "print_num", "7").answered("packet trace set print num ok\n")
    engine.cli("pkt_trace", "enable").answered("packet trace set enable OK\n")
    engine.cli("pkt_trace", "show").answered(shown(1, 7, ONE_SOURCE))
    engine.cli("pkt_trace", "clear").answered("packet trace clear condition OK\n")
    engine.cli("pkt_trace", "show").answered(shown(0, 0, NOTHING))


def test_counters(engine):
    engine.cli("pkt_trace", "counter").answered(
        f"\n Packet Trace Counter\n{RULE}\n"
        " Packets from driver number      : 0\n"
        " Packets to driver number        : 0\n"
        " Packets from RLK number         : 0\n"
        " Packets to RLK number           : 0\n")


def test_refused_conditions_fail(engine):
    for words, answer in [
        (["vlan", "x"], "Error: input error.\n"),
        (["sip", "1.2.3.256"], "Error: ip address error.\n"),
        (["eth_type", "2054"], "eth type input in hexadecimal format. eg:0x0806\nError: input error.\n"),
        (["vlans", "1"], "Error: Unsupported pkt trace type.\n"),
    ]:
        result = engine.cli("pkt_trace", "set", *words)
        assert (result.code, result.out, result.err) == (1, answer, ""), result
    engine.cli("pkt_trace", "show").answered(shown(0, 0, NOTHING))


def test_other_words_list_the_forms(engine):
    usage = engine.cli("pkt_trace")
    assert usage.code == 2 and usage.err == "" and usage.out.count("\n") == 41, usage
    assert usage.out.startswith("nqecli pkt_trace enable \n"), usage
    for words in (["help"], ["set"], ["set", "vlan", "1", "2"]):
        result = engine.cli("pkt_trace", *words)
        assert (result.code, result.out, result.err) == (2, usage.out, ""), result


def test_the_engine_answers_the_same(engine):
    client = engine.client()
    assert client.ask("pkt_trace set vlan 7") == (0, "packet trace set vlan ok")
    assert client.ask("pkt_trace show")[1] == engine.cli("pkt_trace", "show").out


def test_a_snapshot_keeps_nothing(engine, directory):
    engine.cli("pkt_trace", "set", "sip", "10.1.0.7")
    saved = directory / "saved"
    shutil.copy(engine.arena, saved)
    for _ in range(2):
        nqecli("--snapshot", saved, "pkt_trace", "show").answered(shown(0, 0, ONE_SOURCE))
        nqecli("--snapshot", saved, "pkt_trace", "set", "vlan", "7").answered("packet trace set vlan ok\n")


def test_without_an_engine(place):
    place.cli("pkt_trace", "show").failed("arena")


def test_a_name_of_several_words_gets_a_hint(engine):
    hint = ('nqecli: pkt_trace reads one word of a name; a name of several takes nqecli agent debug-pkt enable=true '
            'discard-type="arp miss", which replaces all conditions\n')
    quoted = engine.cli("pkt_trace", "set", "discard_type", "arp miss")
    assert (quoted.code, quoted.out, quoted.err) == (1, "Error: input error.\n", hint), quoted
    apart = engine.cli("pkt_trace", "set", "discard_type", "arp", "miss")
    assert (apart.code, apart.err) == (2, hint) and apart.out.startswith("nqecli pkt_trace enable \n"), apart
    # What it names does what it says.
    engine.cli("agent", "debug-pkt", "enable=true", "discard-type=arp miss").answered("")
    assert " Condition                : 0x0000000000000020\n" in engine.cli("pkt_trace", "show").out
    assert engine.cli("pkt_trace", "set", "discard_type", "nonsense").err == (
        'nqecli: no discard type is called "nonsense" (they are the discard counters of nqecli statistics)\n')
    assert engine.cli("pkt_trace", "set", "discard_type", "arp mess").err == (
        'nqecli: no discard type is called "arp mess" (they are the discard counters of nqecli statistics)\n')
