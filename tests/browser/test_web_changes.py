"""What the page may change where it is told that it may: measurements, the packet trace, resets. Each is asked for twice."""

import pytest
from selenium.webdriver.common.keys import Keys

from conftest import ROOT, console, processes

SECRET = "0123456789abcdef0123456789abcdef"


@pytest.fixture(scope="module")
def engine():
    """A site of its own, of which sessions end."""
    with processes.engine_place() as place:
        place.scenario.unlink()
        place.scenario = ROOT / "examples" / "campus.yaml"
        place.start("--traffic", "500")
        yield place
        assert place.end()[0] == 0


@pytest.fixture(scope="module")
def changing(engine, tmp_path_factory):
    secret = tmp_path_factory.mktemp("token") / "token"
    secret.write_text(SECRET + "\n")
    secret.chmod(0o600)
    with console("--arena", engine.arena, "--allow-changes", "--token-file", secret) as web:
        yield web


def enter(browser, web, place):
    """A view of a console that asks for its token, once a tab."""
    browser.expected = ("401",)
    browser.web = web
    browser.driver.get("about:blank")
    browser.driver.get(f"{web.url}#/{place}")
    browser.until("document.querySelector('dialog input[type=password]') || document.getElementById('view')?.hasAttribute('aria-busy') === false",
                  "the view or the question for the token")
    if browser.run("return document.querySelector('dialog input[type=password]') !== null"):
        browser.type("dialog input[type=password]", SECRET + "\n")
    browser.settle()


def see(browser, web, place, *texts):
    enter(browser, web, place)
    for text in texts:
        browser.says(text)


def press(browser, text):
    """The button of the view or of the dialog that says so."""
    one = browser.until(f"[...document.querySelectorAll('#view button, dialog button')].find(one => one.textContent === {text!r} && !one.disabled)", text)
    one.click()


def test_measurements_are_started_and_stopped(browser, engine, changing):
    see(browser, changing, "measure", "tasks: not traced", "nqecli perf task set time")
    browser.click("details summary")
    press(browser, "Trace tasks")
    browser.says("tasks: cycles")
    browser.says("DRV_FAST_RX")
    assert "Trace flag is not set" not in engine.cli("perf", "task", "show").out
    press(browser, "Clear")
    browser.says("tasks: cycles")
    press(browser, "Trace no tasks")
    browser.says("tasks: not traced")
    assert "Trace flag is not set" in engine.cli("perf", "task", "show").out
    browser.says("points: stopped")
    press(browser, "Count at points")
    browser.says("points: mode 3")
    browser.says("Cycles a packet")
    press(browser, "Stop counting")
    browser.says("points: stopped")
    browser.says("What was counted until it was stopped")
    browser.leave()


def test_a_refused_change_is_said(browser, engine, changing):
    enter(browser, changing, "trace")
    browser.expected = ("401", "409")
    browser.type("#trace-sip", "192.0.2.999")
    press(browser, "Start the trace")
    browser.until("document.querySelector('#view .notice.bad')?.textContent.includes('refused')", "the refusal")
    browser.leave()


def test_trace_is_started_held_and_stopped(browser, engine, changing):
    enter(browser, changing, "trace")
    browser.type("#trace-protocol", "6")
    browser.type("#trace-print_num", "255")
    press(browser, "Start the trace")
    browser.says("Packets are traced")
    assert "DebugFlag                : 1" in engine.cli("pkt_trace", "show").out
    browser.until("document.querySelector('.lines').textContent.includes(' > ')", "a line")
    press(browser, "Hold")
    press(browser, "Hold")
    press(browser, "Stop and clear")
    browser.says("No packets are traced")
    assert "DebugFlag                : 0" in engine.cli("pkt_trace", "show").out
    press(browser, "Empty")
    browser.until("document.querySelector('.lines').textContent === ''", "no lines")
    browser.leave()


def sessions(engine):
    return int(engine.cli("list", "session", "aging_time!=0", "--count").out)


def test_sessions_end_once_they_were_seen(browser, engine, changing):
    enter(browser, changing, "reset?what=session&protocol=17")
    before = sessions(engine)
    assert browser.run("return document.getElementById('session-protocol').value") == "17"
    browser.says("agent reset-session protocol=17")
    press(browser, "Show what would end …")
    said = browser.until("document.querySelector('dialog[open]')?.innerText", "the question")
    assert " would end in arena." in said and "udp VPN" in said and "no condition" not in said, said
    press(browser, "Leave it")
    browser.until("!document.querySelector('dialog')", "the question to be gone")
    # Escape is no agreement either.
    press(browser, "Show what would end …")
    browser.until("document.querySelector('dialog[open]')", "the question")
    browser.keys(Keys.ESCAPE)
    browser.until("!document.querySelector('dialog')", "the question to be gone")
    assert sessions(engine) == before
    count = int(engine.cli("agent", "reset-session", "protocol=17", "--dry-run").err.split()[0])
    assert 0 < count < before
    press(browser, "Show what would end …")
    press(browser, "End them")
    browser.until(f"document.querySelector('#view .notice.good')?.textContent.includes('Sessions: {count} session')", "what came of it")
    # The engine takes them out when it ages its sessions the next time.
    processes.wait_until(lambda: engine.cli("agent", "reset-session", "protocol=17", "--dry-run").err == "0 sessions would end\n",
                         "the sessions to have ended")
    press(browser, "Show what would end …")
    browser.until("document.querySelector('#view .notice.good')?.textContent.includes('Nothing fits')", "that nothing is left")
    # The conditions stand in the address.
    browser.type("#session-inside-source-ip", "192.0.2.11")
    browser.until("location.hash.includes('inside-source-ip=192.0.2.11')", "the address")
    browser.leave()


def test_all_takes_a_word_more(browser, engine, changing):
    enter(browser, changing, "reset?what=server-map")
    browser.click("form[aria-label='Server maps to end'] button.main")
    said = browser.until("document.querySelector('dialog[open]')?.innerText", "the question")
    assert "There is no condition: that is every server map." in said, said
    press(browser, "Leave it")
    browser.leave()


def test_one_session_from_its_entry(browser, engine, changing):
    enter(browser, changing, "sessions?filter=positive.protocol%3D6")
    browser.click(".list tbody a")
    browser.says("End it …")
    browser.run("[...document.querySelectorAll('#view a.button')].find(one => one.textContent === 'End it …').click()")
    browser.until("document.getElementById('session-protocol')?.value === '6'", "the form with its conditions")
    assert browser.run("return document.getElementById('session-inside-source-ip').value") != ""
    browser.leave()


def test_counters_begin_anew(browser, engine, changing):
    enter(browser, changing, "reset")
    press(browser, "Set them to 0 …")
    browser.until("document.querySelector('dialog[open]')", "the question")
    press(browser, "Set to 0")
    browser.until("document.querySelector('#view .notice.good')?.textContent.includes('The counters begin anew')", "what came of it")
    browser.leave()


def test_a_console_that_only_shows_offers_commands_alone(browser, engine):
    with console("--arena", engine.arena) as web:
        browser.open(web, "reset?what=session&protocol=6")
        browser.says("This console only shows")
        browser.says("agent reset-session protocol=6")
        assert browser.run("return [...document.querySelectorAll('#view button.main')].map(one => one.disabled)") == [True] * 3
        browser.leave()
