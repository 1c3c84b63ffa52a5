"""The page's server side: 200 different requests to ten million measurements, over HTTP as a browser asks.

python bench/page.py [UNITS]      of 100 items each; default 100,000
"""

import contextlib
import http.client
import random
import sys
import threading
import time
from collections.abc import Iterator
from itertools import chain
from pathlib import Path
from urllib.parse import urlencode

import qon_results
from qon_results.page.server import bound, server
from qon_results.page.settings import Settings
from results_read import UNITS, made

REQUESTS = 200


@contextlib.contextmanager
def serving(where: str) -> Iterator[int]:
    settings = Settings(where, port=0)
    listening, running = bound(settings), server(settings)
    thread = threading.Thread(target=running.run, args=([listening],))
    thread.start()
    try:
        yield listening.getsockname()[1]
    finally:
        running.should_exit = True
        thread.join()


def addresses(folder: Path, units: int, chance: random.Random) -> list[str]:
    """All pages, with whatever can be asked of them."""
    with qon_results.open(folder) as store:
        ids = [str(run.id) for run in store.runs(limit=2000)]
        last = store.runs(limit=1)[0].begin_us / 1e6
    asked: list[str] = []
    for number in range(REQUESTS):
        days = chance.choice([1, 7, 30, 90, 365])
        since = time.strftime("%Y-%m-%dT%H:%M", time.localtime(last - days * 86400 - number))
        item, serial = f"ITEM_{chance.randrange(100):03d}", f"SN{chance.randrange(1, units):08d}"
        cell = str(chance.randrange(1, 9))
        asked.append(
            chance.choice(
                [
                    f"/?number={number}",
                    f"/unit/{chance.choice(ids)}",
                    "/units?"
                    + urlencode({"serial": serial[: chance.choice([7, 10])] + "*", "period": "all"}),
                    "/units?" + urlencode({"item": item, "since": since}),
                    "/units?"
                    + urlencode({"outcome": chance.choice(["NG", "ABORTED"]), "cell": cell, "since": since}),
                    "/yield?"
                    + urlencode({"since": since, "by": chance.choice(["cell", "product", "batch"])}),
                    "/yield?" + urlencode({"since": since, "cell": cell}),
                ]
            )
        )
    return asked


def _page(address: str) -> str:
    return "/" + address.partition("?")[0].split("/")[1]


def main() -> None:
    units = int(sys.argv[1]) if len(sys.argv) > 1 else UNITS
    folder = made(units)
    took: dict[str, list[float]] = {}
    with serving(str(folder)) as port:
        connection = http.client.HTTPConnection("127.0.0.1", port)

        def ask(address: str) -> float:
            began = time.perf_counter()
            connection.request("GET", address, headers={"Accept-Encoding": "gzip"})
            answer = connection.getresponse()
            answer.read()
            if answer.status != 200:
                raise SystemExit(f"{address}: {answer.status}")
            return (time.perf_counter() - began) * 1e3

        print(f"first page, all runs read: {ask('/yield?period=all'):.0f} ms")
        busy = time.process_time()
        for address in addresses(folder, units, random.Random(1)):
            took.setdefault(_page(address), []).append(ask(address))
        print(
            f"processor {1e3 * (time.process_time() - busy) / REQUESTS:.0f} ms a request, the asking included"
        )
        sent = 0
        for name in ("/", "/static/style.css", "/static/live.js", "/static/icon.svg"):
            connection.request("GET", name, headers={"Accept-Encoding": "gzip"})
            sent += len(connection.getresponse().read())
        connection.request("GET", "/static/plotly.min.js", headers={"Accept-Encoding": "gzip"})
        charts = len(connection.getresponse().read())
    every = sorted(chain.from_iterable(took.values()))
    for name, some in sorted(took.items()):
        some.sort()
        print(
            f"{name:8} {len(some):4} requests, median {some[len(some) // 2]:6.1f} ms, worst {some[-1]:6.1f} ms"
        )
    print(f"all      {len(every):4} requests, p95 {every[int(len(every) * 0.95)]:.1f} ms (300 ms allowed)")
    print(
        f"cold browser: {sent / 1e3:.0f} kB for the first page, {charts / 1e6:.2f} MB more where there are charts"
    )


if __name__ == "__main__":
    main()
