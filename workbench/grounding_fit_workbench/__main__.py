"""Runs the command as `python -m grounding_fit_workbench`."""

import sys

from grounding_fit_workbench.command import main

if __name__ == "__main__":
    sys.exit(main())
