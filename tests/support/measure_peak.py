"""Runs a command and writes the peak of its resident memory, in bytes, to a file.

measure_peak.py RESULT COMMAND [ARGUMENT...]
"""

import os
import pathlib
import sys

result, *command = sys.argv[1:]
_, status, usage = os.wait4(os.posix_spawn(command[0], command, os.environ), 0)
pathlib.Path(result).write_text(str(usage.ru_maxrss * 1024))
sys.exit(os.waitstatus_to_exitcode(status))
