"""What ships is built to make a mistake in it hard to use."""

import pathlib

import pytest

import elf

ROOT = pathlib.Path(__file__).resolve().parents[2]


@pytest.fixture(params=["keltconfig", "keltconfig-crypto.so", "keltconfig-provision.so"])
def shipped(request, binary):
    return elf.Elf(binary.parent / request.param)


def test_is_position_independent_and_loads_anywhere(shipped):
    assert shipped.type == elf.ET_DYN
    assert not shipped.values(elf.DT_TEXTREL)
    assert not shipped.flag(elf.DT_FLAGS, elf.DF_TEXTREL)


def test_program_is_marked_as_position_independent(binary):
    assert elf.Elf(binary).flag(elf.DT_FLAGS_1, elf.DF_1_PIE)


def test_has_no_segment_that_can_be_written_and_run(shipped):
    both = elf.EXECUTABLE | elf.WRITABLE
    assert [segment for segment in shipped.segments if segment[1] & both == both] == []
    assert shipped.segment(elf.PT_GNU_STACK)[1] & elf.EXECUTABLE == 0


def test_binds_all_names_at_once_and_then_protects_them(shipped):
    assert shipped.flag(elf.DT_FLAGS_1, elf.DF_1_NOW)
    assert shipped.flag(elf.DT_FLAGS, elf.DF_BIND_NOW) or shipped.values(elf.DT_BIND_NOW)
    assert shipped.segment(elf.PT_GNU_RELRO)


def test_guards_its_stack(shipped):
    assert "__stack_chk_fail" in shipped.imports()


def test_checks_the_bounds_of_library_calls(shipped):
    # Each of the three wipes secrets itself; other checked calls may come from libraries linked into it.
    assert "__explicit_bzero_chk" in shipped.imports()


def test_needs_no_memory_of_the_dynamic_loader_that_it_cannot_do_without(shipped):
    # It ends the process where its table of such names cannot grow.
    assert shipped.unique() == set()


def test_looks_for_libraries_only_where_the_system_has_them(shipped):
    # And on the device, where the parts bring theirs, in the directory that is judged together with the part.
    brings = "keltconfig-libraries.so" in shipped.needed()
    assert shipped.texts(elf.DT_RPATH) == (["$ORIGIN"] if brings else [])
    assert shipped.texts(elf.DT_RUNPATH) == []


def test_names_no_directory_of_the_machine_that_built_it(shipped):
    assert bytes(ROOT) not in shipped.data
