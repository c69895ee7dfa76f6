"""The texts that a device's agent reports."""

import pytest
from ansible.errors import AnsibleError
from ansible_collections.kelt.fleet.plugins.plugin_utils.properties import properties_of, wanted_properties

XML = '<?xml version="1.0" encoding="UTF-8"?>\n<CustomProperties><CustomProps1 value="a&amp;b é"/><CustomProps4 value=""/></CustomProperties>\n'


def test_properties_are_read_from_the_agent_that_counts():
    frames = [("properties", "/etc/orv.d/other", ""), ("properties", "/etc/orv.d/agent", XML)]
    assert properties_of(frames, "/etc/orv.d/agent") == {"1": "a&b é", "4": ""}
    assert properties_of(frames, "/etc/orv.d/other") == {}


def test_numbers_of_any_kind_name_a_property():
    assert wanted_properties({1: "Rack 4", "3": 7, 4: None}) == {"1": "Rack 4", "3": "7"}


@pytest.mark.parametrize("value, reason", [("", "empty"), ("-x", "begin"), ("a\nb", "control"), ("日", "ISO-8859-1")])
def test_a_text_that_keltconfig_could_not_take_is_refused(value, reason):
    with pytest.raises(AnsibleError, match=reason):
        wanted_properties({1: value})


@pytest.mark.parametrize("given", [{5: "x"}, {"one": "x"}, {1: None}])
def test_what_names_no_property_is_refused(given):
    with pytest.raises(AnsibleError):
        wanted_properties(given)
