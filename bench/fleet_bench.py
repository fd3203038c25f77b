"""What a fleet costs on Prometheus: so many engines on the campus site with simulated traffic on this machine, one nqeweb before
them, and Debian's Prometheus with the files of deploy/prometheus. Prints the table of docs/fleet.md.

usage: fleet_bench.py BIN_DIRECTORY [ENGINES [SECONDS [INTERVAL]]]

Takes the packages prometheus and prometheus-alertmanager.
"""

import os
import pathlib
import statistics
import sys
import time

ROOT = pathlib.Path(__file__).resolve().parents[1]
OF_JOBS = 'count({__name__=~"(job|job_.+):.+"})'
TICKS = os.sysconf("SC_CLK_TCK")


def processor_seconds(process):
    fields = pathlib.Path(f"/proc/{process.pid}/stat").read_text().rsplit(")", 1)[1].split()
    return (int(fields[11]) + int(fields[12])) / TICKS


def own_bytes(process):
    """Of a process's memory what is not a file's, nor shared."""
    status = pathlib.Path(f"/proc/{process.pid}/status").read_text()
    return int(status.split("RssAnon:")[1].split()[0]) * 1024


def counter(fleet, expression):
    return fleet.number(expression) or 0.0


def main(engines=200, seconds=300, interval=5):
    with fleet_of() as fleet:
        names = [f"ap-{number:04}" for number in range(1, engines + 1)]
        scenario = ["--scenario", ROOT / "examples" / "campus.yaml", "--traffic", "20"]
        fleet.start_engines({name: scenario for name in names})
        address = fleet.start_web(names)
        config = fleet.configure(1, interval, {}, {address: names})
        # It watches itself, and cuts its blocks so soon that there are some to look at.
        text = (config / "prometheus.yml").read_text()
        (config / "prometheus.yml").write_text(
            text + f"  - job_name: prometheus\n    static_configs: [{{targets: ['{fleet.prometheus}']}}]\n")
        fleet.start_prometheus(config, "--storage.tsdb.min-block-duration=2m", "--storage.tsdb.max-block-duration=2m")
        wait_until(lambda: fleet.number("count(nqe_survey_time_seconds)") == engines, "all findings to be counted")
        samples = "prometheus_tsdb_head_samples_appended_total"
        web, database = fleet.web, fleet.database
        before = [processor_seconds(web), processor_seconds(database), counter(fleet, samples), time.monotonic()]
        time.sleep(seconds)
        after = [processor_seconds(web), processor_seconds(database), counter(fleet, samples), time.monotonic()]
        web_seconds, database_seconds, appended, took = (b - a for a, b in zip(before, after))
        scrapes = engines * took / interval
        durations = [value for _, value in fleet.query('scrape_duration_seconds{job="nqe-probe"}')]
        series = counter(fleet, "prometheus_tsdb_head_series")
        page = get(f"http://{address}/probe?target={names[0]}")
        chunks = (counter(fleet, "prometheus_tsdb_compaction_chunk_size_bytes_sum"),
                  counter(fleet, "prometheus_tsdb_compaction_chunk_samples_sum"))
        for what, value in (
                ("engines", f"{engines:,}"),
                ("scrape interval here", f"{interval} s"),
                ("series of an engine", f"{len([line for line in page.splitlines() if line[0] != '#']):,}"),
                ("series in Prometheus, all of an engine's", f"{series / engines:,.0f}"),
                ("bytes of a scrape", f"{len(page):,}"),
                ("scrape, median", f"{statistics.median(durations) * 1000:.1f} ms"),
                ("scrape, slowest", f"{max(durations) * 1000:.1f} ms"),
                ("failed scrapes", f"{counter(fleet, 'sum(count_over_time((up == 0)[5m:5s]))'):.0f}"),
                ("samples a second", f"{appended / took:,.0f}"),
                ("series that federation takes", f"{counter(fleet, OF_JOBS):,.0f}"),
                ("nqeweb, processor time of a scrape, survey included", f"{web_seconds / scrapes * 1e3:.2f} ms"),
                ("nqeweb, memory of its own", f"{own_bytes(web) / 2**20:.1f} MiB"),
                ("Prometheus, processor time of 1,000 samples", f"{database_seconds / appended * 1e6:.2f} ms"),
                ("Prometheus, memory of a series", f"{own_bytes(database) / series / 1024:.1f} KiB"),
                ("Prometheus, bytes of a sample on disk", f"{chunks[0] / chunks[1]:.2f}" if chunks[1] else "no block yet"),
        ):
            print(f"| {what} | {value} |")


if __name__ == "__main__":
    if len(sys.argv) < 2:
        sys.exit(__doc__)
    os.environ["QDT_BIN"] = sys.argv[1]
    sys.path.insert(0, str(ROOT / "tests" / "fleet"))
    from fleet import fleet as fleet_of, get, wait_until
    main(*map(int, sys.argv[2:]))
