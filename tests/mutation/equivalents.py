"""Changes that no test can notice, because the program does the same with them: equivalent.toml."""

import tomllib

KEYS = ("file", "function", "line", "change")


def key_of(mutant):
    """By what a change is found again when the lines around it move."""
    return (mutant.file, mutant.function, mutant.text, mutant.change)


class Equivalents:
    def __init__(self, path):
        content = tomllib.loads(path.read_text()) if path.exists() else {}
        self.reasons = {}
        for entry in content.get("equivalent", []):
            if not entry.get("reason"):
                raise RuntimeError(f"{path}: an entry without a reason: {entry}")
            self.reasons[tuple(entry[key] for key in KEYS)] = entry["reason"]

    def __contains__(self, mutant):
        return key_of(mutant) in self.reasons

    def stale(self, mutants, files):
        """The entries about these files to which none of their mutants belongs any more."""
        known = {key_of(mutant) for mutant in mutants}
        return [key for key in self.reasons if key[0] in files and key not in known]


def entry_of(mutant):
    """A survivor as an entry to complete."""
    lines = [f"{name} = {quoted(value)}" for name, value in zip(KEYS, key_of(mutant))]
    return "\n".join(["[[equivalent]]", *lines, 'reason = ""', ""])


def quoted(text):
    return f"'{text}'" if "'" not in text else '"' + text.replace("\\", "\\\\").replace('"', '\\"') + '"'
