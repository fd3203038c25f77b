"""The engine as a process: starting, stopping, its socket, and what it leaves behind."""

import os
import re
import shutil
import signal
import subprocess
import time
from concurrent.futures import ThreadPoolExecutor

import pytest

from conftest import (BIN, PATIENCE, SCENARIO, Client, Engine, Result, engine_place, frame, is_socket, map_answer,
                      nqecli, nqed, run, short_directory, wait_until)


# Starting and stopping


def test_ready_line_names_what_was_published(place):
    place.start()
    assert place.ready_line == (f"nqed: ready, pid {place.process.pid}, arena {place.arena}, socket {place.socket}, "
                                "60 entries in 1 tables\n")
    assert place.leftovers() == ["arena", "arena.sock"]
    assert is_socket(place.socket)
    place.stop()


@pytest.mark.parametrize("how", [signal.SIGTERM, signal.SIGINT, signal.SIGHUP])
def test_signals_stop_it_and_leave_nothing(place, how):
    place.start()
    assert place.end(how) == (0, "")
    assert place.leftovers() == []


def test_signal_while_it_starts(place):
    for delay in (0.0, 0.005, 0.01, 0.02, 0.03, 0.05):
        place.spawn()
        time.sleep(delay)
        code, err = place.end(signal.SIGTERM)
        # Before there is anything to clean up the signal just ends it.
        assert code in (0, -signal.SIGTERM) and err == ""
        assert place.leftovers() == []


def test_status(engine):
    result = nqed("status", "--arena", engine.arena)
    assert result.code == 0 and result.err == "", result
    lines = result.out.splitlines()
    assert lines[0] == f"pid       {engine.process.pid}", result
    assert re.fullmatch(r"uptime    \d+ s", lines[1]), result
    assert lines[2:] == [
        f"arena     {engine.arena}",
        f"socket    {engine.socket}",
        f"scenario  {engine.scenario}",
        "tables    1 in use",
        "entries   60",
        "table 11  60 of 4096  CAP_TABLE_CTRLIF_MAP",
    ], result


def test_status_without_engine(place):
    nqed("status", "--arena", place.arena).failed(str(place.arena), tool="nqed")
    place.start()
    place.end(signal.SIGKILL)
    nqed("status", "--arena", place.arena).failed("the engine is gone", tool="nqed")


def test_second_start_is_refused(engine):
    pid = str(engine.process.pid)
    nqed("--scenario", engine.scenario, "--arena", engine.arena).failed(pid, "--arena", tool="nqed")
    # Nor does another socket help, or another arena at the same socket.
    nqed("--scenario", engine.scenario, "--arena", engine.arena, "--socket", engine.directory / "s2").failed(
        pid, tool="nqed")
    nqed("--scenario", engine.scenario, "--arena", engine.directory / "a2", "--socket", engine.socket).failed(
        "already", "--socket", tool="nqed")
    assert engine.leftovers() == ["arena", "arena.sock"]
    engine.cli("show", "ctrlif_map_fwdif", "1007").answered(map_answer(7))


def test_takes_over_after_kill(place):
    for _ in range(3):
        place.start()
        place.cli("show", "ctrlif_map_fwdif", "1001").answered(map_answer(1))
        assert place.end(signal.SIGKILL)[0] == -signal.SIGKILL
        assert place.leftovers() == ["arena", "arena.sock"]
    place.start()
    place.cli("show", "ctrlif_map_fwdif", "1001").answered(map_answer(1))
    place.stop()


def test_of_many_that_start_at_once_one_runs(place):
    place.start()
    place.end(signal.SIGKILL)
    others = [Engine(place.directory) for _ in range(6)]  # all written before the first one reads
    for other in others:
        other.spawn()
    try:
        wait_until(lambda: sum(other.process.poll() is None for other in others) == 1, "one engine left")
        winner = next(other for other in others if other.process.poll() is None)
        assert winner.process.stdout.readline().startswith(b"nqed: ready, ")
        for other in others:
            if other is not winner:
                out, err = other.process.communicate(timeout=PATIENCE)
                Result(["nqed"], other.process.returncode, out.decode(), err.decode()).failed("already", tool="nqed")
        winner.cli("show", "ctrlif_map_fwdif", "1001").answered(map_answer(1))
        winner.stop()
    finally:
        for other in others:
            if other.process is not None:
                other.process.kill()
                other.process.wait()


def test_two_engines_side_by_side(engine):
    with engine_place() as other:
        other.scenario.write_text("ctrlif_map_fwdif: [{ctrl_if_index: 1001, fwd_if_index: 77}]\n")
        other.start()
        engine.cli("show", "ctrlif_map_fwdif", "1001").answered(map_answer(1))
        answer = other.cli("show", "ctrlif_map_fwdif", "1001")
        assert answer.code == 0 and "  FwdIfIdx   :  77\n" in answer.out, answer
        other.stop()
        other.cli("show", "ctrlif_map_fwdif", "1001").failed()
        engine.cli("show", "ctrlif_map_fwdif", "1001").answered(map_answer(1))


def test_relative_paths_hold_in_other_directories(place):
    os.rename(place.scenario, place.directory / "s.yaml")
    process = subprocess.Popen([BIN / "nqed", "--scenario", "s.yaml", "--arena", "a", "--socket", "b"],
                               cwd=place.directory, stdout=subprocess.PIPE)
    try:
        assert process.stdout.readline().startswith(b"nqed: ready, ")
        result = nqed("status", "--arena", place.directory / "a", cwd="/")
        assert result.code == 0, result
        assert f"socket    {place.directory}/b\n" in result.out, result
        assert f"scenario  {place.directory}/s.yaml\n" in result.out, result
    finally:
        process.terminate()
        assert process.wait(PATIENCE) == 0


# What it refuses


@pytest.mark.parametrize("text, part", [
    ("no_such_table: [{x: 1}]\n", "no_such_table"),
    ("ctrlif_map_fwdif: [{ctrl_if_indx: 1}]\n", "ctrl_if_indx"),
    ("ctrlif_map_fwdif: [{ctrl_if_index: 4294967296, fwd_if_index: 1}]\n", "4294967296"),
    ("ctrlif_map_fwdif: [{ctrl_if_index: 1}, {ctrl_if_index: 1}]\n", "1"),
    ("ctrlif_map_fwdif: [", "scenario.yaml"),
    ("\0\xff\xfe", "scenario.yaml"),
])
def test_bad_scenario_publishes_nothing(place, text, part):
    place.scenario.write_text(text)
    nqed("--scenario", place.scenario, "--arena", place.arena).failed(part, tool="nqed")
    assert place.leftovers() == []


def test_bad_scenario_leaves_the_dead_engines_arena(place):
    place.start()
    place.end(signal.SIGKILL)
    before = place.arena.read_bytes()
    place.scenario.write_text("no_such_table: []\n")
    nqed("--scenario", place.scenario, "--arena", place.arena).failed(tool="nqed")
    assert place.arena.read_bytes() == before


@pytest.mark.parametrize("words, part", [
    ([], "--scenario"),
    (["--scenario"], "--scenario needs a value"),
    (["--scenario="], "--scenario needs a value"),
    (["--arena"], "--arena needs a value"),
    (["--nonsense"], '"--nonsense"'),
    (["scenario.yaml"], '"scenario.yaml"'),
    (["--scenario", "/nowhere/x.yaml", "--arena", "/tmp/nqe-never"], "/nowhere/x.yaml"),
    (["--scenario", "/dev/null"], "/dev/null"),
    (["--clients", "0"], '--clients "0" is not a number from 1 to 512'),
    (["--clients", "513"], '--clients "513" is not a number from 1 to 512'),
    (["--patience", "0"], '--patience "0" is not a number from 1 to 86400'),
    (["--patience", "86401"], '--patience "86401" is not a number from 1 to 86400'),
])
def test_bad_usage(words, part):
    nqed(*words).failed(part, tool="nqed")


def test_a_place_that_does_not_exist(place):
    nqed("--scenario", place.scenario, "--arena", "/nowhere/a").failed("/nowhere/a", tool="nqed")
    nqed("--scenario", place.scenario, "--arena", place.arena, "--socket", "/nowhere/s").failed(
        "/nowhere", tool="nqed")
    assert place.leftovers() == []


def test_long_words():
    nqed("x" * 100000).failed("...", "try --help", tool="nqed")
    nqed("--arena", "x" * 100000, "status").failed(tool="nqed")


def test_layout_directory_has_to_hold_layouts(place):
    nqed("--scenario", place.scenario, "--arena", place.arena, "--layout", place.directory / "none").failed(
        "none", tool="nqed")
    assert place.leftovers() == []


def test_help_and_version():
    text = nqed("--help")
    assert text.code == 0 and text.out.startswith("usage: nqed --scenario FILE") and text.err == "", text
    version = nqed("--version")
    assert re.fullmatch(r"nqed \d+\.\d+\.\d+ \(.+\)\n", version.out) and version.code == 0, version


def test_socket_path_that_is_something_else(place):
    precious = place.directory / "precious"
    precious.write_text("keep me")
    nqed("--scenario", place.scenario, "--arena", place.arena, "--socket", precious).failed(
        str(precious), "not a socket", tool="nqed")
    assert precious.read_text() == "keep me"
    assert place.leftovers() == ["precious"]


def test_arena_path_that_is_something_else(place):
    place.arena.write_text("keep me")
    nqed("--scenario", place.scenario, "--arena", place.arena).failed(str(place.arena), tool="nqed")
    assert place.arena.read_text() == "keep me"
    assert place.leftovers() == ["arena"]


def test_socket_path_that_is_too_long(place):
    long = place.directory / ("s" * 200)
    nqed("--scenario", place.scenario, "--arena", place.arena, "--socket", long).failed("107", "--socket", tool="nqed")
    assert place.leftovers() == []


def in_small_disk(directory, script):
    """Runs a shell script with a tmpfs of 64 KiB mounted at `directory`, seen by the script alone."""
    if shutil.which("unshare") is None:
        pytest.skip("unshare is not installed")
    probe = run("unshare", "-m", "mount", "-t", "tmpfs", "-o", "size=64k", "none", directory)
    if probe.code != 0:
        pytest.skip(f"mounting is not permitted here: {probe.err.strip()}")
    return run("unshare", "-m", "sh", "-c", f"mount -t tmpfs -o size=64k none {directory} && {script}")


def test_full_disk_under_the_arena(place, directory):
    result = in_small_disk(
        directory, f"{{ {BIN}/nqed --scenario {place.scenario} --arena {directory}/arena; echo code $?; ls -A {directory}; }}")
    assert result.out == "code 2\n", result
    assert result.err.startswith("nqed: ") and result.err.count("\n") == 1, result
    assert f"{directory}/arena" in result.err, result


def test_full_disk_under_a_snapshot(engine, directory):
    result = in_small_disk(
        directory,
        f"{{ {BIN}/nqecli --arena {engine.arena} snapshot {directory}/copy; echo code $?; ls -A {directory}; }}")
    assert result.out == "code 2\n", result
    assert result.err == f"nqecli: cannot write {directory}/copy: No space left on device\n", result


def test_full_disk_under_an_export(engine, directory):
    result = in_small_disk(
        directory,
        f"{{ head -c 60000 /dev/zero >{directory}/ballast; "
        f"{BIN}/nqecli --arena {engine.arena} export {directory}/state.yaml; echo code $?; ls -A {directory}; }}")
    assert result.out == "code 2\nballast\n", result
    assert result.err.startswith("nqecli: ") and result.err.count("\n") == 1 and "No space left" in result.err, result


def test_a_scenario_may_fill_the_capacity_that_is_told(place):
    place.scenario.write_text("ssw_macinfo:\n  - {repeat: 20000, bridge_id: 1, vlan_id: 10, mac: {from: 02:00:5e:00:00:00, step: 1}}\n")
    nqed("--scenario", place.scenario, "--arena", place.arena).failed("the table is full (it holds 16384 entries)", tool="nqed")
    place.start("--capacity", "ssw_macinfo=20000")
    assert "20000 entries" in place.ready_line
    place.stop()
    nqed("--scenario", place.scenario, "--arena", place.arena, "--capacity", "ssw_macinfo=19999").failed(
        "the table is full (it holds 19999 entries)", tool="nqed")


# The tool and the engine's life


def test_no_arena(place):
    place.cli("show", "fwdif", "1").failed(str(place.arena), "nqed")
    assert nqecli("--snapshot", place.directory / "none", "show", "fwdif").failed(str(place.directory / "none"))


def test_clients_that_outlive_the_engine_are_told(place):
    place.start()
    place.end(signal.SIGKILL)
    place.cli("show", "ctrlif_map_fwdif", "1001").failed("the engine is gone")
    place.cli("diag", "clear", "cpcar", "status").failed("the engine is gone")
    place.cli("snapshot", place.directory / "copy").failed("the engine is gone")
    # What it left can still be looked into.
    nqecli("--snapshot", place.arena, "show", "ctrlif_map_fwdif", "1001").answered(map_answer(1))
    assert place.leftovers() == ["arena", "arena.sock"]


def test_arena_without_permission(engine):
    if os.geteuid() != 0:
        pytest.skip("takes root to become somebody else")
    os.chmod(engine.arena, 0o600)
    tool = engine.directory / "nqecli"
    shutil.copy(BIN / "nqecli", tool)
    try:
        result = run(tool, "--arena", engine.arena, "show", "fwdif", "1", user="nobody", group="nogroup", cwd="/")
        result.failed(str(engine.arena), "permission")
    finally:
        tool.unlink()


def test_snapshot_answers_after_the_stop(place, directory):
    place.start()
    copy = directory / "copy"
    place.cli("snapshot", copy).answered("")
    assert os.stat(copy).st_size == os.stat(place.arena).st_size
    assert os.stat(copy).st_blocks * 512 < os.stat(copy).st_size / 10, "holes are kept"
    place.stop()
    nqecli("--snapshot", copy, "show", "ctrlif_map_fwdif", "1060").answered(map_answer(60))
    nqecli("--snapshot", copy, "diag", "search", "nqpTable", "1", "0", "1002", "0", "0").answered(map_answer(2))
    assert [entry.name for entry in directory.iterdir()] == ["copy"]


def test_snapshot_does_not_reach_the_engine(engine, directory):
    engine.cli("snapshot", directory / "copy").answered("")
    nqecli("--snapshot", directory / "copy", "diag", "clear", "cpcar", "status").failed("a saved arena has none")
    engine.cli("diag", "clear", "cpcar", "status").answered("")


def test_snapshot_overwrites_nothing(engine, directory):
    (directory / "mine").write_text("keep me")
    engine.cli("snapshot", directory / "mine").failed(str(directory / "mine"), "exists")
    os.symlink("nowhere", directory / "link")
    engine.cli("snapshot", directory / "link").failed("exists")
    engine.cli("snapshot", directory / "no" / "copy").failed(str(directory / "no"))
    engine.cli("snapshot", "").failed()
    assert (directory / "mine").read_text() == "keep me"
    assert sorted(entry.name for entry in directory.iterdir()) == ["link", "mine"]


def test_many_snapshots_at_once(engine, directory):
    with ThreadPoolExecutor(8) as pool:
        for result in pool.map(lambda i: engine.cli("snapshot", directory / str(i)), range(8)):
            result.answered("")
        for result in pool.map(
                lambda i: nqecli("--snapshot", directory / str(i), "show", "ctrlif_map_fwdif", "1009"), range(8)):
            result.answered(map_answer(9))


def test_stopped_engine_does_not_hang_its_clients(engine, directory):
    engine.process.send_signal(signal.SIGSTOP)
    try:
        # Reading takes no help of the engine.
        engine.cli("show", "ctrlif_map_fwdif", "1001").answered(map_answer(1))
        started = time.monotonic()
        engine.cli("snapshot", directory / "copy").failed("does not answer")
        assert time.monotonic() - started < 20
        assert list(directory.iterdir()) == []
    finally:
        engine.process.send_signal(signal.SIGCONT)


# The socket


def test_commands_over_the_socket(engine):
    client = engine.client()
    assert client.ask("diag search nqpTable 1 0 1003 0 0") == (0, map_answer(3)[:-1])
    assert client.ask("diag search nqpTable 1 '0' \"1099\" 0 0") == (0, "search result not found")
    assert client.ask("diag clear cpcar status") == (0, "")
    status, text = client.ask("diag")
    assert status == 0 and text.startswith("diag clear cpcar status\n 0. fwdif ") and text.count("\n") == 101
    status, text = client.ask("help")
    assert status == 0 and "status" in text and "snapshot" in text
    status, text = client.ask("status")
    assert status == 0 and f"pid       {engine.process.pid}\n" in text


@pytest.mark.parametrize("line, part", [
    ("", "empty"),
    ("  \t ", "empty"),
    ("nonsense", '"nonsense"'),
    pytest.param("x" * 1048576, '"xxxx', id="1 MiB"),
    ("diag 'open", "'...'"),
    ("di\0ag", "NUL"),
    ("clear", "cpcar"),
    ("clear everything", "cpcar"),
])
def test_refused_lines_get_a_line(engine, line, part):
    client = engine.client()
    status, text = client.ask(line)
    assert status == -1 and part in text and "\n" not in text, (status, text)
    assert client.ask("diag search nqpTable 1 0 1003 0 0") == (0, map_answer(3)[:-1])


@pytest.mark.parametrize("line", [
    "diag search nqpTable 1 " + "k" * 1048000 + " 1001 0 0",
    "diag search nqpTable 1 0 1001 0 " + "9" * 1048000,
    "diag " + "w " * 524000,
    "diag search nqpTable 99999999999999999999999 0 0 0 0",
    "diag search nqpTable \xff\xfe 0 0 0 0",
    "diag search nqpTable 88 all 0 0 0",
    "diag search nqpTable 14 num5 0 0 0",
    "diag '' '' '' '' '' '' ''",
], ids=["1 MiB key", "1 MiB number", "524000 words", "number past 64 bits", "not ASCII", "id 88", "id 14", "empty words"])
def test_odd_words_are_answered(engine, line):
    client = engine.client()
    status, text = client.ask(line)
    assert status == 0 and text != "", (status, text)
    assert client.ask("diag search nqpTable 1 0 1003 0 0") == (0, map_answer(3)[:-1])


def test_pipelined_requests(engine):
    client = engine.client()
    client.send(b"".join(frame(f"diag search nqpTable 1 0 {1001 + i % 60} 0 0") for i in range(500)))
    for i in range(500):
        assert client.reply() == (0, map_answer(1 + i % 60)[:-1])


def test_oversized_request(engine):
    client = engine.client()
    client.send(frame("x" * 1048577)[:100000])
    assert client.reply() == (-1, "a request has at most 1048576 bytes")
    assert client.read(1) == b""
    engine.cli("show", "ctrlif_map_fwdif", "1001").answered(map_answer(1))


def test_garbage_bytes(engine):
    for garbage in (b"GET / HTTP/1.0\r\n\r\n", b"\0" * 4096, b"\xff" * 4096, os.urandom(65536), b"\x05\0\0\0NQE2hello"):
        client = engine.client()
        client.send(garbage)
        assert client.reply() == (-1, "this is not a request of the engine's protocol")
        assert client.read(1) == b""
    engine.cli("show", "ctrlif_map_fwdif", "1001").answered(map_answer(1))


def test_32_clients_at_once(engine):
    def talk(number):
        client = engine.client()
        return all(client.ask(f"diag search nqpTable 1 0 {1001 + number} 0 0") == (0, map_answer(1 + number)[:-1])
                   for _ in range(50))

    with ThreadPoolExecutor(32) as pool:
        assert all(pool.map(talk, range(32)))


def test_slow_reader_holds_up_nobody(engine):
    slow = engine.client()
    slow.send(b"".join(frame("diag") for _ in range(300)))
    started = time.monotonic()
    for i in range(100):
        assert Client(engine.socket).ask(f"diag search nqpTable 1 0 {1001 + i % 60} 0 0")[0] == 0
    assert time.monotonic() - started < 5
    first = slow.reply()
    for _ in range(299):
        assert slow.reply() == first


def test_silent_clients_lock_nobody_out(engine):
    asked = engine.client()
    assert asked.ask("status")[0] == 0
    silent = [engine.client() for _ in range(127)]
    assert engine.cli("engine", "status").code == 0
    assert silent[0].reply() == (-1, "the engine has too many clients and closed this idle connection; connect again")
    assert asked.ask("status")[0] == 0
    assert silent[-1].ask("status")[0] == 0


def test_patience_with_clients(place):
    place.start("--clients", "2", "--patience", "1")
    silent = place.client()
    assert silent.socket.recv(1) == b""  # closed, and nothing was said
    place.stop()


def test_clients_killed_in_mid_request(engine):
    for cut in (1, 4, 7, 8, 9, 20):
        client = engine.client()
        client.send(frame("diag search nqpTable 1 0 1001 0 0")[:cut])
        client.close()
    script = ("import socket, sys, time\n"
              "s = socket.socket(socket.AF_UNIX); s.connect(sys.argv[1])\n"
              "s.sendall(bytes.fromhex('00001000') + b'NQE1' + b'x' * 500000); print('sent', flush=True); time.sleep(60)\n")
    for _ in range(5):
        client = subprocess.Popen(["/usr/bin/python3", "-c", script, engine.socket], stdout=subprocess.PIPE)
        assert client.stdout.readline() == b"sent\n"
        client.kill()
        client.wait()
    engine.cli("show", "ctrlif_map_fwdif", "1001").answered(map_answer(1))


def test_client_that_never_reads_and_dies(engine):
    client = engine.client()
    client.send(b"".join(frame("diag") for _ in range(200)))
    client.close()
    engine.cli("show", "ctrlif_map_fwdif", "1001").answered(map_answer(1))


def test_idle_connection_sees_the_stop(place):
    place.start()
    client = place.client()
    assert client.ask("help")[0] == 0
    place.stop()
    assert client.read(1) == b""


def test_closed_standard_files(place):
    process = subprocess.Popen(
        ["sh", "-c", f"exec {BIN}/nqed --scenario {place.scenario} --arena {place.arena} <&- >&- 2>&-"])
    try:
        wait_until(place.socket.exists, "the engine's socket")
        wait_until(lambda: place.cli("show", "ctrlif_map_fwdif", "1001").code == 0, "an answer")
        place.cli("show", "ctrlif_map_fwdif", "1001").answered(map_answer(1))
    finally:
        process.terminate()
        assert process.wait(PATIENCE) == 0
    assert place.leftovers() == []


def test_engine_tool_cannot_write_its_answer(engine):
    for words in (["--help"], ["--version"], ["status", "--arena", engine.arena]):
        with open("/dev/full", "wb") as full:
            done = subprocess.run([BIN / "nqed", *words], stdout=full, stderr=subprocess.PIPE, timeout=PATIENCE)
        assert (done.returncode, done.stderr) == (2, b"nqed: cannot write the answer: No space left on device\n")


def test_engine_runs_when_its_ready_line_cannot_be_written(place):
    with open("/dev/full", "wb") as full:
        place.process = subprocess.Popen([BIN / "nqed", "--scenario", place.scenario, "--arena", place.arena],
                                         stdout=full, stderr=subprocess.PIPE)
    wait_until(lambda: place.cli("show", "1", "1005").code == 0, "the engine answers")
    place.stop()


def test_working_directory_is_gone(directory):
    gone = directory / "gone"
    gone.mkdir()
    result = run("sh", "-c", f"cd {gone} && rmdir {gone} && exec {BIN}/nqed --scenario x --arena y")
    result.failed("the working directory is gone", tool="nqed")


def test_user_who_may_only_read(place):
    if os.geteuid() != 0:
        pytest.skip("takes root to become somebody else")
    place.scenario.write_text(SCENARIO + "global: [{ssh_port: 22}]\n")
    place.start()
    os.chmod(place.arena, 0o644)
    with short_directory() as directory:
        tool = shutil.copy(BIN / "nqecli", directory)
        shutil.copy(BIN / "nqecli-agent", directory)

        def reader(*words):
            return run(tool, "--arena", place.arena, *words, user="nobody", group="nogroup", extra_groups=[], cwd="/")

        reader("show", "1", "1005").answered(map_answer(5))
        result = reader("show", "global")
        assert (result.code, result.out) == (1, "parse data format fail\n"), result
        assert result.err.startswith("nqecli: this user may only read the arena"), result
        for words in (["pkt_trace", "show"], ["pmc", "3"], ["perf", "task", "show"]):
            result = reader(*words)
            assert result.code == 2 and "OsaSmmap failed" in result.out, result
            assert result.err.startswith("nqecli: this user may only read the arena"), result
        reader("engine", "status").failed("no permission to talk to the engine on")
        assert "CAP_TABLE_CTRLIF_MAP" in reader("agent", "tbl-usage").out
        for command in ("debug-pkt", "reset-session", "reset-server-map"):
            reader("agent", command).failed(f"this user may only read the arena, and {command} changes it")
    place.stop()


@pytest.mark.parametrize("files, accepted", [(17, True), (18, False), (20000, False)])
def test_chain_of_included_files(place, files, accepted):
    chain = place.directory / "chain"
    chain.mkdir()
    for i in range(files - 1):
        (chain / str(i)).write_text(f"include: [{i + 1}]\n")
    (chain / str(files - 1)).write_text(SCENARIO)
    place.scenario = chain / "0"
    place.spawn()
    if accepted:
        wait_until(lambda: place.cli("show", "1", "1005").code == 0, "the engine answers")
        assert place.end() == (0, "")
    else:
        where = chain / "16"
        message = f'{where}:1: include: files include each other too deeply (16 levels are the limit)'
        assert place.collect() == (2, f"nqed: {message}\n")
    shutil.rmtree(chain)
