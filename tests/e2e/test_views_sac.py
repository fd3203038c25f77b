"""The views of application control: whole answers, from the engine and from a snapshot of it."""

import pytest

from conftest import site_of

NOT_FOUND = "search result not found"
UNSUPPORTED = "search is not supported"
FULL = "parse data format fail"


def test_profiles(campus):
    campus.shows("sac_profile 1", """\
      SacId           :  1
      VapStatEn       :  1
      UsrStatEn       :  1
[ 0]  AppId           :  1001
      AppType         :  1
      ActionType      :  1(remark-dscp)
      ActionPara      :  46
      ActionIndex     :  11
[ 1]  AppId           :  1002
      AppType         :  1
      ActionType      :  2(remark-dot1p)
      ActionPara      :  5
      ActionIndex     :  12
[ 4]  AppId           :  1003
      AppType         :  2
      ActionType      :  5(dynamic-optimization)
      ActionPara      :  0
      ActionIndex     :  13
[ 9]  AppId           :  1004
      AppType         :  3
      ActionType      :  4(car)
      ActionPara      :  611
      ActionIndex     :  14
[31]  AppId           :  1005
      AppType         :  4
      ActionType      :  3(deny)
      ActionPara      :  0
      ActionIndex     :  15
""")
    # One without applications, and one by its key whatever the first word says.
    campus.shows("sac_profile all 2", """\
      SacId           :  2
      VapStatEn       :  1
      UsrStatEn       :  0
""")
    campus.refuses("sac_profile 3", NOT_FOUND)


def test_policy_cars(campus):
    campus.shows("sac_policy_carid 1 1004 3", """\
    SacId        :  1
    AppId        :  1004
    AppType      :  3
    CarId        :  611
""")
    campus.shows("sac_policy_carid 2 1004 3", """\
    SacId        :  2
    AppId        :  1004
    AppType      :  3
    CarId        :  612
""")
    campus.refuses("sac_policy_carid 1 1004 4", NOT_FOUND)
    campus.refuses("sac_policy_carid 1 3 1004", NOT_FOUND)


def test_groups(campus):
    campus.shows("sac_app_group 1", "bitmap[ 0] : 0000000e\n" + "".join(f"bitmap[{i:2}] : 00000000\n" for i in range(1, 16)))
    campus.shows("sac_app_group 2", """\
bitmap[ 0] : 00000030
bitmap[ 1] : 11111111
bitmap[ 2] : 22222222
bitmap[ 3] : 33333333
bitmap[ 4] : 44444444
bitmap[ 5] : 55555555
bitmap[ 6] : 66666666
bitmap[ 7] : 77777777
bitmap[ 8] : 88888888
bitmap[ 9] : 99999999
bitmap[10] : aaaaaaaa
bitmap[11] : bbbbbbbb
bitmap[12] : cccccccc
bitmap[13] : dddddddd
bitmap[14] : eeeeeeee
bitmap[15] : f0000001
""")
    campus.refuses("sac_app_group 0", NOT_FOUND)


def test_mappings(campus):
    campus.shows("sac_protocol_mapping 27", "    AppId        :  1003\n    ClassId      :  2\n")
    campus.shows("sac_protocol_mapping 41", "    AppId        :  1004\n    ClassId      :  3\n")
    campus.refuses("sac_protocol_mapping 28", NOT_FOUND)
    campus.shows("sac_app_mapping 1002", "    AppIndex     :  2\n    ClassId      :  1\n    AppName      :  screen-share\n")
    campus.shows("sac_app_mapping 1005",
                 "    AppIndex     :  5\n    ClassId      :  4\n    AppName      :  a-game-of-thirty-one-characters\n")
    campus.refuses("sac_app_mapping 2", NOT_FOUND)
    campus.shows("sac_app_rvs_mapping 4",
                 "    AppId        :  1004\n    ClassId      :  3\n    AppName      :  nightly-backup\n")
    campus.refuses("sac_app_rvs_mapping 1004", NOT_FOUND)
    campus.shows("sac_priority_mapping 1002", "    Priority     :  5\n")
    campus.refuses("sac_priority_mapping 1003", NOT_FOUND)


def head(last_slot, real_time, version, last_version, global_version):
    return (f"      AppNum            :  {last_slot}\n      CurRealTimeStat   :  {real_time}\n"
            f"      CurStatVersion    :  {version}\n      LastStatVersion   :  {last_version}\n"
            f"      GlobalStatVersion :  {global_version}\n")


def counted(up_packets, up_bytes, down_packets, down_bytes):
    return (f"      UpPktStat         :  {up_packets}\n      UpByteStat        :  {up_bytes}\n"
            f"      DnPktStat         :  {down_packets}\n      DnByteStat        :  {down_bytes}\n")


def slot(number, whole, part0=(0, 0, 0, 0, 0), part1=(0, 0, 0, 0, 0)):
    """A slot's lines: of each the application, then packets and bytes up, packets and bytes down."""
    return (f"[{number:2}]  AppId             :  {whole[0]}\n" + counted(*whole[1:]) +
            f"      AppId0            :  {part0[0]}\n" + counted(*part0[1:]) +
            f"      AppId1            :  {part1[0]}\n" + counted(*part1[1:]))


def test_interface_statistics(campus):
    campus.shows("sac_if_stat 2001", """\
      AppNum            :  3
      CurRealTimeStat   :  1
      CurStatVersion    :  20240611
      LastStatVersion   :  20240530
      GlobalStatVersion :  20240611
[ 1]  AppId             :  1001
      UpPktStat         :  96000
      UpByteStat        :  80640000
      DnPktStat         :  112000
      DnByteStat        :  134400000
      AppId0            :  2101
      UpPktStat         :  95000
      UpByteStat        :  79800000
      DnPktStat         :  110000
      DnByteStat        :  132000000
      AppId1            :  2201
      UpPktStat         :  1000
      UpByteStat        :  840000
      DnPktStat         :  2000
      DnByteStat        :  2400000
[ 2]  AppId             :  1002
      UpPktStat         :  150
      UpByteStat        :  45000
      DnPktStat         :  9000
      DnByteStat        :  10800000000
      AppId0            :  0
      UpPktStat         :  0
      UpByteStat        :  0
      DnPktStat         :  0
      DnByteStat        :  0
      AppId1            :  0
      UpPktStat         :  0
      UpByteStat        :  0
      DnPktStat         :  0
      DnByteStat        :  0
[ 3]  AppId             :  1003
      UpPktStat         :  40
      UpByteStat        :  5200
      DnPktStat         :  52
      DnByteStat        :  61000
      AppId0            :  0
      UpPktStat         :  0
      UpByteStat        :  0
      DnPktStat         :  0
      DnByteStat        :  0
      AppId1            :  0
      UpPktStat         :  0
      UpByteStat        :  0
      DnPktStat         :  0
      DnByteStat        :  0
""")
    campus.shows("sac_if_stat 2003", head(0, 0, -1, 0, 20240611) + slot(0, (1, 7, 700, 8, 880)))
    campus.shows("sac_if_stat 2002", head(0, 0, 0, 20240611, 20240611))
    campus.refuses("sac_if_stat 2004", NOT_FOUND)  # no statistics for its VAP
    campus.refuses("sac_if_stat 101", NOT_FOUND)  # no control interface


def test_user_statistics(campus):
    campus.shows("sac_usf_stat 02:00:5e:30:00:01", head(2, 1, 20240612, 20240531, 20240611) +
                 slot(1, (1001, 31, 3200, 33, 34000), (2101, 11, 1200, 13, 14000), (2201, 20, 2000, 20, 20000)) +
                 slot(2, (1002, 41, 4200, 43, 44000), (2102, 15, 1600, 17, 18000), (2202, 26, 2600, 26, 26000)))
    campus.shows("sac_usf_stat 02:00:5E:30:00:0B", head(0, 0, 0, 0, 20240611))
    campus.refuses("sac_usf_stat 02:00:5e:30:00:02", NOT_FOUND)
    for key in ("0", "all", "02:00:5e:30:00", "anna"):
        campus.refuses(f"sac_usf_stat {key}", UNSUPPORTED)


def test_user_key_in_the_place_that_the_usage_shows(campus):
    result = campus.engine.cli("diag", "search", "nqpTable", "86", "0", "02:00:5e:30:00:01", "0", "0")
    assert result.code == 2 and "86 0 mac 0 0\n" in result.out, result


# Every slot of the largest blocks, and a slot's greatest values: only the whole's bytes are wider than 32 bits.
LARGE = """\
global: [{sac_version: -9223372036854775808}]
ctrlif_map_fwdif:
  - {ctrl_if_index: 5, fwd_if_index: 9}
  - {ctrl_if_index: 6, fwd_if_index: 10}
fwdif: [{if_index: 9, vap_index: 255}]
sac_if_stat:
  - vap_index: 255
    last_slot: 200
    version: 9223372036854775807
    last_version: -9223372036854775808
    whole: {0: {app_id: 4294967295, up_packets: 4294967295, up_bytes: 9223372036854775807, down_packets: 2147483648,
                down_bytes: -9223372036854775808},
            200: {app_id: 1, up_packets: 2, up_bytes: 3, down_packets: 4, down_bytes: 5}}
    part0: {0: {app_id: 4294967294, up_packets: 4294967294, up_bytes: 4294967293, down_packets: 2147483649,
                down_bytes: 2147483650}, 200: {app_id: 11, up_packets: 12, up_bytes: 13, down_packets: 14, down_bytes: 15}}
    part1: {0: {app_id: 4294967293, up_packets: 4294967292, up_bytes: 4294967291, down_packets: 2147483651,
                down_bytes: 2147483652}, 200: {app_id: 21, up_packets: 22, up_bytes: 23, down_packets: 24, down_bytes: 25}}
sac_usf_stat:
  - mac: 02:00:5e:00:53:01
    last_slot: 42
    whole: {42: {app_id: 1, up_packets: 2, up_bytes: 3, down_packets: 4, down_bytes: 5}}
    part0: {42: {app_id: 11, up_packets: 12, up_bytes: 13, down_packets: 14, down_bytes: 15}}
    part1: {42: {app_id: 21, up_packets: 22, up_bytes: 23, down_packets: 24, down_bytes: 25}}
"""
LAST = ((1, 2, 3, 4, 5), (11, 12, 13, 14, 15), (21, 22, 23, 24, 25))
NOTHING = (0, 0, 0, 0, 0)
LOWEST = -9223372036854775808


def test_whole_blocks():
    with site_of(LARGE) as site:
        site.shows("sac_if_stat 5", head(200, 0, 9223372036854775807, LOWEST, LOWEST) +
                   slot(0, (4294967295, -1, 9223372036854775807, -2147483648, LOWEST),
                        (4294967294, -2, -3, -2147483647, -2147483646), (4294967293, -4, -5, -2147483645, -2147483644)) +
                   "".join(slot(i, NOTHING) for i in range(1, 200)) + slot(200, *LAST))
        site.shows("sac_usf_stat 02:00:5e:00:53:01", head(42, 0, 0, 0, LOWEST) +
                   "".join(slot(i, NOTHING) for i in range(1, 42)) + slot(42, *LAST))
        site.refuses("sac_if_stat 6", NOT_FOUND)  # its forwarding interface is not there


def test_values_that_no_engine_writes():
    """Action types without a name, more slots than a record has, names that fill their field: nothing behind is read."""
    text = ("global: [{}]\nctrlif_map_fwdif: [{ctrl_if_index: 5, fwd_if_index: 9}]\nfwdif: [{if_index: 9}]\n"
            "sac_profile:\n  - sac_id: 4294967295\n    vap_stat: 255\n    user_stat: 254\n    applications:\n" +
            "".join(f"      {i}: {{app_id: {65535 - i}, app_type: {255 - i}, action_type: {kind}, action_index: {i},"
                    f" action_parameter: 4294967295}}\n" for i, kind in enumerate((0, 6, 128, 255))) +
            "sac_if_stat: [{vap_index: 0, last_slot: 4294967295, whole: {200: {app_id: 7}}}]\n"
            "sac_usf_stat: [{mac: 02:00:5e:00:53:01, last_slot: 43, whole: {42: {app_id: 8}}}]\n"
            f"sac_app_mapping: [{{app_id: 1, app_index: 4294967295, class_id: 4294967294, app_name: {'n' * 32}}}]\n"
            f"sac_app_rvs_mapping: [{{app_index: 1, app_id: 4294967295, class_id: 4294967294, app_name: {'m' * 32}}}]\n")
    with site_of(text) as site:
        site.shows("sac_profile 4294967295", (
            "      SacId           :  4294967295\n      VapStatEn       :  255\n      UsrStatEn       :  254\n" +
            "".join(f"[ {i}]  AppId           :  {65535 - i}\n      AppType         :  {255 - i}\n"
                    f"      ActionType      :  {kind}()\n      ActionPara      :  4294967295\n      ActionIndex     :  {i}\n"
                    for i, kind in enumerate((0, 6, 128, 255)))))
        site.shows("sac_if_stat 5", head(4294967295, 0, 0, 0, 0) + "".join(slot(i, NOTHING) for i in range(1, 200)) +
                   slot(200, (7, 0, 0, 0, 0)))
        site.shows("sac_usf_stat 2:0:5e:0:53:1", head(43, 0, 0, 0, 0) + "".join(slot(i, NOTHING) for i in range(1, 42)) +
                   slot(42, (8, 0, 0, 0, 0)))
        site.shows("sac_app_mapping 1", f"    AppIndex     :  4294967295\n    ClassId      :  4294967294\n"
                   f"    AppName      :  {'n' * 32}\n")
        site.shows("sac_app_rvs_mapping 1", f"    AppId        :  4294967295\n    ClassId      :  4294967294\n"
                   f"    AppName      :  {'m' * 32}\n")


@pytest.mark.parametrize("query", ["sac_if_stat 5", "sac_usf_stat 02:00:5e:00:53:01"])
def test_statistics_without_the_global_record(query):
    with site_of(LARGE.split("\n", 1)[1]) as site:
        site.refuses(query, FULL)
