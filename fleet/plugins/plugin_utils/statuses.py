"""The exit statuses of keltconfig, as docs/console.md has them: what was the cause, and what to do."""

from __future__ import absolute_import, division, print_function

__metaclass__ = type

STATUSES = {
    0: (
        "Done. Also after `-version`, and after `-m` without `-d` when nothing later failed",
        "Read the texts: some problems are reported and do not change the status",
    ),
    1: (
        "The command line was rejected or help was shown; or the switch of mode or its key import failed",
        "Read the text above; after a failed switch the service was started again. Put the cause right and run "
        "the command again",
    ),
    2: (
        "The version check (`-checkHF`) failed",
        "The hotfix does not fit the installed agent version, or the agent's configuration file does not load",
    ),
    3: (
        "The conflict check (`-conflictList`) failed",
        "The hotfix, or one that conflicts with it, is installed, or the agent's configuration file does not load",
    ),
    4: (
        "The agent service could not be started",
        "Check that the agent's directory under `/etc/orv.d` is there, is root's, is not writable by others, and "
        "that its `config.xml` loads; the agent's log names the file that was refused, and why",
    ),
    5: (
        "The agent service could not be stopped; nothing was changed",
        "As for 4",
    ),
    8: (
        "The current directory could not be found, or the agent's binary directory could not be entered",
        "Run it from an existing directory; check that the agent is installed",
    ),
    16: (
        "The key import of `-k` failed; the service was started again, unless its configuration was removed, "
        "spoilt or opened to others meanwhile, which the log says",
        "Read the agent's log, `logs/keltcfg.log` in the agent's data directory",
    ),
    17: (
        "Another run, or another tool of the agent, held the instance lock for 300 seconds; or the lock could not"
        " be used (not root, `/run/orv-locks` not root's alone)",
        "Wait for the other run to end; run it as root",
    ),
    18: (
        "The crypto logger could not be created (no memory)",
        "Free memory and run it again",
    ),
    31: (
        "Provisioning: the transfer could not be set up",
        "Check the installation: the provisioning module, which only root may be able to write to, and the "
        "libraries it needs",
    ),
    32: (
        "Provisioning: the transfer failed",
        "Check the server's name, port and reachability",
    ),
    33: (
        "Provisioning: the zip file could not be created in the source directory",
        "Check that the directory of `-d` exists and is writable, and that nothing stands in the way of the name",
    ),
    34: (
        "Provisioning: writing the zip file failed",
        "Make room on the file system of the source directory",
    ),
    35: (
        "Provisioning: the archive could not be unpacked",
        "The reply holds no archive, a damaged one, or one that was refused; `keltconfig_keystemp.zip` stays for "
        "inspection",
    ),
    36: (
        "Provisioning: `agentfipsmode` could not be created",
        "As for 33",
    ),
    38: (
        "Provisioning: the FIPS mode could not be read from the received site list",
        "The archive holds no `sitelist.xml`, or one that does not load; or what somebody else put under the name"
        " of a key file or of the site list cannot be removed (the log names it)",
    ),
    39: (
        "Provisioning: the received site list could not be renamed",
        "As for 33",
    ),
    40: (
        "Provisioning: the reply is not a success reply",
        "Check user name and password, and that the server is a management server",
    ),
    71: (
        "The run was out of memory, and says so; what it had begun was brought to an end first. Or a standard "
        "descriptor was closed and `/dev/null` could not be opened in its place; nothing was done",
        "Free memory and run it again; repair `/dev`",
    ),
}

# What a shell makes of a program that it does not find, or that a signal ended.
NOT_FOUND = 127
SIGNALLED = 128


def meaning(status):
    """The cause and the remedy behind an exit status of keltconfig, as a shell on the device tells it."""
    if status in STATUSES:
        return STATUSES[status]
    if status == NOT_FOUND:
        return ("keltconfig is not installed, or a library that it needs is missing", "Install the package")
    if status > SIGNALLED:
        return (
            "The run was ended by signal %d" % (status - SIGNALLED),
            "Run it again; the agent is started by a guard meanwhile",
        )
    return ("This status is not known", "Read what the tool says")
