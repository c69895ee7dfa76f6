"""What of a device lasts over a power cut."""

import pathlib
import stat

# The log is none of it: it is written without syncs, and no run reads it.
TOPS = ("/etc/orv.d", "/opt/Quorvane")
LOGS = "/opt/Quorvane/orv/scratch/logs"


def lasts(path):
    """Whether a path is of what lasts."""
    return path.startswith(tuple(top + "/" for top in TOPS)) and not (path + "/").startswith(LOGS + "/")


def lasting_tree(root="/"):
    """Everything that lasts: path to (kind, mode, content)."""
    tree = {}
    for top in TOPS:
        for path in sorted(pathlib.Path(root, top.lstrip("/")).rglob("*")):
            name = "/" + str(path.relative_to(root))
            if (name + "/").startswith(LOGS + "/"):
                continue
            info = path.lstat()
            directory = stat.S_ISDIR(info.st_mode)
            tree[name] = ("d" if directory else "f", stat.S_IMODE(info.st_mode), b"" if directory else path.read_bytes())
    return tree
