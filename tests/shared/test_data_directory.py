"""The data directory's one name."""

from support.cases import Case, checked, given

ROWS = [
    Case("relative", given(), lambda m: m._canonical_data_dir("a/../b"), "HERE/b"),
    Case("at home", given(), lambda m: m._canonical_data_dir("~/x"), "HOME/x"),
    Case("by default", given(), lambda m: m._canonical_data_dir(None), "HOME/.sablecrest/data"),
]
test_data_directory_is_expanded_and_canonical_and_not_made = checked(ROWS)
