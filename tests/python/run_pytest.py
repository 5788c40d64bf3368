"""Usage: run_pytest.py FOLDER_OF_PACKAGE FILE. Ends with 77 where a package is missing."""

import pathlib
import sys


def main():
    sys.path.insert(0, sys.argv[1])
    try:
        import hypothesis  # noqa: F401
        import pytest
    except ImportError as error:
        print(f"skipped: there is no {error.name}; scripts/setup.sh python installs it")
        return 77
    import planex

    assert pathlib.Path(planex.__file__).is_relative_to(sys.argv[1]), planex.__file__
    status = pytest.main(["-q", "-p", "no:cacheprovider", "--tb=short", sys.argv[2]])
    return 77 if status == pytest.ExitCode.NO_TESTS_COLLECTED else status


if __name__ == "__main__":  # a worker process imports it, too
    sys.exit(main())
