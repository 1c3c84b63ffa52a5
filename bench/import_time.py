"""Milliseconds of importing the module, siblings and libraries included."""

import time

BEGIN = time.perf_counter()

from sides import report, side_of_this_process

if __name__ == "__main__":
    side_of_this_process()
    report({"import": (time.perf_counter() - BEGIN) * 1e3})
