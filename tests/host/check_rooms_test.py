#!/usr/bin/env python3
"""check_rooms.py on made-up trees: a good one passes, and each way to break the arrows is told with its place."""

import pathlib
import subprocess
import sys
import tempfile
import unittest

SCRIPT = pathlib.Path(__file__).with_name("check_rooms.py")
HINT = "move what both need into a room below both, or see host/rooms.txt"
GOOD = {
    "host/rooms.txt": "# Rooms.\n\nbase:\narena: base\nwire:  base\n",
    "host/CMakeLists.txt": "",
    "host/base/fd.h": "#include <string>\n",
    "host/base/fd.cc": '#include "host/base/fd.h"\n',
    "host/arena/arena.h": '#include <map>\n\n#include "host/base/fd.h"\n#include "platform/tbm.h"\n',
    "host/arena/tables.yaml": "",
    "host/wire/client.cc": '#include "host/base/fd.h"\n#include "qdt/cli.h"\n',
    "tools/CMakeLists.txt": "",
    "tools/look/main.cc": '#include "host/arena/arena.h"\n#include "tools/look/look.h"\n',
    "tools/look/look.h": "",
    "tools/serve/main.cc": '#include "host/wire/client.h"\n',
    "src/om/view.cc": '#include "src/om/view.h"\n#include "platform/tbm.h"\n',
    "src/om/view.h": "",
}


class RoomsTest(unittest.TestCase):
    def run_on(self, changes):
        """(exit code, output) for the good tree with some files changed; None takes a file away."""
        with tempfile.TemporaryDirectory() as root:
            for name, text in {**GOOD, **changes}.items():
                if text is None:
                    continue
                path = pathlib.Path(root, name)
                path.parent.mkdir(parents=True, exist_ok=True)
                path.write_text(text)
            done = subprocess.run([sys.executable, "-B", SCRIPT, root], capture_output=True, text=True, check=False)
            return done.returncode, done.stdout + done.stderr

    def expect(self, changes, *lines):
        self.assertEqual(self.run_on(changes), (1, "".join(line + "\n" for line in lines)))

    def test_good_tree(self):
        self.assertEqual(self.run_on({}), (0, ""))

    def test_upwards(self):
        self.expect(
            {"host/base/fd.h": '#include <string>\n\n#include "host/arena/arena.h"\n'},
            f'host/base/fd.h:3: host/base may not include "host/arena/arena.h" ({HINT})',
        )

    def test_sideways(self):
        self.expect(
            {"host/wire/client.cc": '  #  include "host/arena/arena.h"\n'},
            f'host/wire/client.cc:1: host/wire may not include "host/arena/arena.h" ({HINT})',
        )

    def test_in_angle_brackets_and_folders_below(self):
        self.expect(
            {"host/base/deep/fd.c": "#include <host/arena/arena.h>\n"},
            f'host/base/deep/fd.c:1: host/base may not include "host/arena/arena.h" ({HINT})',
        )

    def test_room_with_a_name_that_begins_like_an_allowed_one(self):
        self.expect(
            {"host/rooms.txt": "base:\nbases:\narena: base\nwire: base\n", "host/bases/more.h": "",
             "host/wire/client.cc": '#include "host/bases/more.h"\n'},
            f'host/wire/client.cc:1: host/wire may not include "host/bases/more.h" ({HINT})',
        )

    def test_tools_library_and_tests_from_a_room(self):
        for path in ("tools/look/look.h", "src/om/view.h", "tests/host/host_fixture.h", "bench/lab_arena.h"):
            with self.subTest(path):
                self.expect(
                    {"host/arena/arena.h": f'#include "{path}"\n'},
                    f'host/arena/arena.h:1: host/arena may not include "{path}" ({HINT})',
                )

    def test_not_from_the_root(self):
        for path in ("fd.h", "../base/fd.h", "host/../host/base/fd.h"):
            with self.subTest(path):
                self.expect(
                    {"host/base/fd.cc": f'#include "{path}"\n'},
                    f"host/base/fd.cc:1: \"{path}\" (write an include from the source tree's root)",
                )

    def test_tool_from_a_tool(self):
        self.expect(
            {"tools/serve/main.cc": '#include "tools/look/look.h"\n'},
            'tools/serve/main.cc:1: tools/serve may not include "tools/look/look.h" '
            "(tools use their own files and the rooms of host/)",
        )

    def test_host_from_the_library(self):
        self.expect(
            {"src/om/view.h": '#include "host/base/fd.h"\n'},
            'src/om/view.h:1: src may not include "host/base/fd.h" (the library needs include/platform alone)',
        )

    def test_circle(self):
        self.expect(
            {"host/rooms.txt": "base:\narena: base wire\nwire:  base arena\n"},
            "host/rooms.txt:2: arena -> wire: no room of an earlier row (mend the order)",
        )

    def test_bad_row(self):
        self.expect(
            {"host/rooms.txt": "base:\narena: base\nwire:  base\narena: base\nroom\n"},
            'host/rooms.txt:4: not a row "ROOM: ROOMS BELOW IT" of a new room',
            'host/rooms.txt:5: not a row "ROOM: ROOMS BELOW IT" of a new room',
        )

    def test_room_without_a_row_and_row_without_a_room(self):
        self.expect(
            {"host/wire/client.cc": None, "host/wires/client.cc": "", "host/main.cc": ""},
            "host/wires: no room of host/rooms.txt (add a row)",
            "host/rooms.txt: there is no folder host/wire (remove its row)",
            "host/main.cc: stands in no room (move it into one)",
        )

    def test_size(self):
        fifteen = {f"host/wire/part{i}.cc": "" for i in range(14)}
        self.assertEqual(self.run_on(fifteen), (0, ""))
        self.expect(
            {**fifteen, "host/wire/one_more.cc": ""}, "host/wire: 16 sources, 15 are a room (make two of it)"
        )

    def test_no_tree(self):
        code, text = self.run_on({"host/rooms.txt": None})
        self.assertEqual(code, 1)
        self.assertTrue(text.endswith("host/rooms.txt is missing (name the source tree)\n"), text)


if __name__ == "__main__":
    unittest.main()
