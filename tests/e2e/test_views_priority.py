"""The view of a VAP's priority maps: whole answers, from the engine and from a snapshot of it."""

import pytest

from conftest import site_of

NOT_FOUND = "search result not found"

# Every row of a large map ends with a blank; the later rows stand under the first one.
STAFF = """\
  UP    to  DSCP     :  0 8 16 24 32 40 48 56
  UP    to  8021P    :  0 1 2 3 4 5 6 7
  8021P to  UP       :  0 2 1 3 4 5 6 7
  UP    to  Tnl DSCP :  0 10 18 26 34 40 46 48
  DSCP  to  8021P    :  0 0 0 0 0 0 0 0 |
                        1 1 1 1 1 1 1 1 |
                        2 2 2 2 2 2 2 2 |
                        3 3 3 3 3 3 3 3 |
                        4 4 4 4 4 4 4 4 |
                        5 5 5 5 5 5 6 5 |
                        6 6 6 6 6 6 6 6 |
                        7 7 7 7 7 7 7 7 |
  DSCP  to  UP       :  0 0 0 0 0 0 0 0 |
                        2 2 2 2 2 2 2 2 |
                        1 1 1 1 1 1 1 1 |
                        3 3 3 3 3 3 3 3 |
                        4 4 4 4 4 4 4 4 |
                        5 5 5 5 5 5 6 5 |
                        6 6 6 6 6 6 6 6 |
                        7 7 7 7 7 7 7 7 |
  DSCP  to  Tnl DSCP :  0 1 2 3 4 5 6 7 |
                        8 9 10 11 12 13 14 15 |
                        16 17 18 19 20 21 22 23 |
                        24 25 26 27 28 29 30 31 |
                        32 33 34 35 36 37 38 39 |
                        40 41 42 43 44 45 46 47 |
                        48 49 50 51 52 53 54 55 |
                        48 48 48 48 48 48 48 48 |
""".replace("|", "")


def large(label, rows):
    return f"  DSCP  to  {label:9}:  " + (" " * 24).join(row + " \n" for row in rows)


def test_maps_of_the_site(campus):
    campus.shows("priority 0", STAFF)
    campus.shows("priority all 0 7 9", STAFF)  # one VAP by its index, whatever else is said
    zeros = ["0 0 0 0 0 0 0 0"] * 8
    campus.shows("priority 1", """\
  UP    to  DSCP     :  0 8 16 24 32 40 48 56
  UP    to  8021P    :  0 0 0 0 0 0 0 0
  8021P to  UP       :  0 0 0 0 0 0 0 0
  UP    to  Tnl DSCP :  0 0 0 0 0 0 0 0
""" + large("8021P", zeros) + large("UP", zeros) + large("Tnl DSCP", zeros))
    campus.refuses("priority 2", NOT_FOUND)


def test_every_byte_stands_in_its_place():
    """Byte N of the record is N + 20; what is stored for the first line is never shown."""
    scenario = "priority:\n  - vap_index: 4294967295\n" + "".join(
        f"    {field}: {list(range(first + 20, first + 20 + count))}\n" for field, first, count in (
            ("up_to_dscp", 0, 8), ("up_to_8021p", 8, 8), ("dscp_to_8021p", 16, 64), ("dscp_to_up", 80, 64),
            ("8021p_to_up", 144, 8), ("dscp_to_tunnel_dscp", 152, 64), ("up_to_tunnel_dscp", 216, 8)))
    with site_of(scenario) as site:
        site.shows("priority 4294967295", """\
  UP    to  DSCP     :  0 8 16 24 32 40 48 56
  UP    to  8021P    :  28 29 30 31 32 33 34 35
  8021P to  UP       :  164 165 166 167 168 169 170 171
  UP    to  Tnl DSCP :  236 237 238 239 240 241 242 243
""" + large("8021P", """\
36 37 38 39 40 41 42 43
44 45 46 47 48 49 50 51
52 53 54 55 56 57 58 59
60 61 62 63 64 65 66 67
68 69 70 71 72 73 74 75
76 77 78 79 80 81 82 83
84 85 86 87 88 89 90 91
92 93 94 95 96 97 98 99""".split("\n")) + large("UP", """\
100 101 102 103 104 105 106 107
108 109 110 111 112 113 114 115
116 117 118 119 120 121 122 123
124 125 126 127 128 129 130 131
132 133 134 135 136 137 138 139
140 141 142 143 144 145 146 147
148 149 150 151 152 153 154 155
156 157 158 159 160 161 162 163""".split("\n")) + large("Tnl DSCP", """\
172 173 174 175 176 177 178 179
180 181 182 183 184 185 186 187
188 189 190 191 192 193 194 195
196 197 198 199 200 201 202 203
204 205 206 207 208 209 210 211
212 213 214 215 216 217 218 219
220 221 222 223 224 225 226 227
228 229 230 231 232 233 234 235""".split("\n")))


@pytest.mark.parametrize("key", ["x", "-1", "4294967296", "0 x"])
def test_vap_indexes_are_numbers(campus, key):
    campus.engine.cli("show", "priority", *key.split()).failed("of table priority is", "has to be a number")
