"""python3 -m tests.usb MODULE...: runs these test modules and prints the figures that they took."""

import sys
import unittest

from . import machine


def main():
    names = [f"tests.usb.test_{name}" for name in sys.argv[1:]]
    suite = unittest.defaultTestLoader.loadTestsFromNames(names)
    result = unittest.TextTestRunner(stream=sys.stdout, verbosity=2).run(suite)
    for line in machine.figures:
        print(f"figure: {line}")
    print("RESULT", "passed" if result.wasSuccessful() and suite.countTestCases() else "failed",
          flush=True)
    sys.exit(not result.wasSuccessful())


if __name__ == "__main__":
    main()
