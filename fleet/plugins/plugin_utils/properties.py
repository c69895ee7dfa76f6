"""The texts that a device's agent reports, as the file of them has them and as keltconfig takes them."""

from __future__ import absolute_import, division, print_function

__metaclass__ = type

from xml.parsers import expat

from ansible.errors import AnsibleError

NUMBERS = ("1", "2", "3", "4")


def wanted_properties(given):
    """The properties of a task by number, as text. AnsibleError where keltconfig could not take one."""
    properties = {}
    for number, value in given.items():
        number = str(number)
        if number not in NUMBERS:
            raise AnsibleError("custom_props: %s is none of 1 to 4" % number)
        if value is None:
            continue
        properties[number] = checked(number, str(value))
    if not properties:
        raise AnsibleError("custom_props: give at least one; keltconfig cannot clear them all")
    return properties


def checked(number, value):
    if not value or value.startswith("-"):
        raise AnsibleError('custom_props: %s must not be empty or begin with "-"' % number)
    if any(ord(character) < 32 for character in value):
        raise AnsibleError("custom_props: %s has a control character" % number)
    try:
        value.encode("iso-8859-1")
    except UnicodeEncodeError:
        raise AnsibleError("custom_props: %s has a character that is not in ISO-8859-1" % number)
    return value


def properties_of(frames, agent_directory):
    """The properties that a device has, by number, from the frames of a look."""
    for name, argument, text in frames:
        if name == "properties" and argument == agent_directory:
            return read(text)
    return {}


def read(text):
    found = {}

    def begin(name, attributes):
        if name.startswith("CustomProps") and name[11:] in NUMBERS:
            found[name[11:]] = attributes.get("value", "")

    parser = expat.ParserCreate()
    parser.StartElementHandler = begin
    try:
        parser.Parse(text.strip().encode("utf-8", "surrogateescape"), True)
    except expat.ExpatError:
        return {}
    return found
