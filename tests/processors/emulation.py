"""A plugin of pytest (-p emulation, with this directory on PYTHONPATH): leaves out the end-to-end tests that need what
qemu-user does not give to the programs that it runs. What is left out and why stands in LACKING alone."""

import pytest

# Why, and which: a file, or tests of a file whose names begin so.
LACKING = {
    "sockets of the kernel's tables and of packets (AF_NETLINK, AF_PACKET)": [
        "test_capture_live.py",
        "test_linux.py",
        "test_linux_room.py",
        "test_linux_router.py",
    ],
    "filters of system calls (seccomp)": ["test_netconf_harm.py::test_sessions_have_no_rights"],
    "limits of address space, of which it takes much itself": [
        "test_long_lists.py::test_little_address_space_is_enough_for_what_fits",
    ],
    "a timer that counts as finely as its shortest tasks take": [
        "test_measurement.py::test_time_of_the_engines_own_tasks",
    ],
    "an account of a program's memory without its own": ["test_netconf_state.py::test_a_full_table_is_walked"],
    "a host of the same processor for the SQLite extension": [
        "test_sql.py::test_sqlite_shell",
        "test_sql.py::test_python",
    ],
    "the timer of 1 GHz for which the rates were written down": [
        "test_views_security.py::test_car_that_counts_bytes",
        "test_views_security.py::test_car_whose_rates_lose_upper_bits",
    ],
    "as much speed as a statement of one second is given": ["test_web_api.py::test_statements_are_bounded"],
}


def reasons(file, name):
    for reason, places in LACKING.items():
        for place in places:
            where, _, which = place.partition("::")
            if where == file and name.startswith(which):
                yield reason, place


@pytest.hookimpl(tryfirst=True)
def pytest_collection_modifyitems(config, items):
    named = set()
    for item in items:
        for reason, place in reasons(item.path.name, item.name):
            named.add(place)
            item.add_marker(pytest.mark.skip(reason="qemu-user: " + reason))
    # Of a file that was named whole.
    files = set() if any("::" in word for word in config.args) else {item.path.name for item in items}
    for places in LACKING.values():
        for place in places:
            assert place in named or place.partition("::")[0] not in files, f"no test is called {place}"
