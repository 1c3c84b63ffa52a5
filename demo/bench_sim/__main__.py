"""`python -m bench_sim --cells 4 --port 15100`: the bench as a process, until its input ends."""

import argparse
import asyncio
import sys
import threading

from .server import BenchServer


def main() -> int:
    parser = argparse.ArgumentParser(description="simulated bench of the demonstration station")
    parser.add_argument("--cells", type=int, default=4)
    parser.add_argument("--port", type=int, default=15100, help="first port; ten are set aside for each cell")
    arguments = parser.parse_args()
    try:
        asyncio.run(_serve_while_input_open(BenchServer(arguments.cells, arguments.port)))
    except OSError as error:
        print(f"the simulated bench cannot listen: {error}", file=sys.stderr)
        return 1
    return 0


async def _serve_while_input_open(server: BenchServer) -> None:
    """The station holds the other end of the input: however it ends, the bench ends with it."""
    serving = asyncio.create_task(server.serve(lambda: print("ready", flush=True)))
    loop = asyncio.get_running_loop()

    def wait_for_end() -> None:
        sys.stdin.buffer.read()
        loop.call_soon_threadsafe(serving.cancel)

    threading.Thread(target=wait_for_end, daemon=True).start()
    try:
        await serving
    except asyncio.CancelledError:
        pass


if __name__ == "__main__":
    sys.exit(main())
