"""A plugin of pytest (-p emulation, with this directory on PYTHONPATH): leaves out the end-to-end tests that need what
qemu-user does not give to the programs that it runs. What is left out and why stands in LACKING alone."""

import pytest

# Why, and which: a file, or tests of a file whose names begin so.
LACKING = {
    "sockets of the kernel's tables and of packets (AF_NETLINK, AF_PACKET)": [
        "test_capture_live.py",
        "test_linux.py",
        "test_linux_router.py",
    ],
}


def reasons(file, name):
    for reason, places in LACKING.items():
        for place in places:
            where, _, which = place.partition("::")
            if where == file and name.startswith(which):
                yield reason, place


@pytest.hookimpl(tryfirst=True)
def pytest_collection_modifyitems(items):
    named = set()
    for item in items:
        for reason, place in reasons(item.path.name, item.name):
            named.add(place)
            item.add_marker(pytest.mark.skip(reason="qemu-user: " + reason))
    files = {item.path.name for item in items}
    for places in LACKING.values():
        for place in places:
            assert place in named or place.partition("::")[0] not in files, f"no test is called {place}"
