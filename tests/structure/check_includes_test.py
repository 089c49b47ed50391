#!/usr/bin/env python3
"""Checks that check_includes.py finds what it is there for, in small trees made up for it."""

import contextlib
import io
import pathlib
import tempfile
import unittest

import check_includes

README = """# A tree
## Layout
| Folder | What it holds | May include |
|---|---|---|
| `stack/include/` | interfaces | |
| `pipeline/model/` | a library | `stack/include/` |
| `tools/zsl/` | a tool | `stack/include/` |
| `tests/`, `bench/` | | everything |

Within `tools/zsl/`:

| Folder | What it holds | May include |
|---|---|---|
| `run/` | the upper room | `base/` |
| `base/` | the lower room | |

## Limits
"""
SOUND = {
    "stack/include/pipeline/Shared.h": "#pragma once\n",
    "pipeline/model/Model.cpp": '#include <pipeline/Shared.h>\n#include <vector>\n',
    "tools/zsl/main.cpp": '#include "run/Run.h"\n',
    "tools/zsl/run/Run.h": '#include "base/Text.h"\n',
    "tools/zsl/run/Run.cpp": '#include "Run.h"\n#include <pipeline/Shared.h>\n',
    "tools/zsl/base/Text.h": "",
    "tests/RunTest.cpp": '#include "run/Run.h"\n#include <pipeline/Shared.h>\n',
}
UPWARD = "tools/zsl/base/Text.cpp:2: includes tools/zsl/run/Run.h, and " \
         "tools/zsl/base -> tools/zsl/run is not allowed"


class CheckIncludesTest(unittest.TestCase):
    def check(self, changed, readme=README):
        """(status, lines) of the check of the sound tree with these changes."""
        with tempfile.TemporaryDirectory(prefix="zsl-includes-") as folder:
            for name, text in {**SOUND, **changed, "README.md": readme}.items():
                path = pathlib.Path(folder, name)
                path.parent.mkdir(parents=True, exist_ok=True)
                path.write_text(text)
            words = io.StringIO()
            with contextlib.redirect_stdout(words):
                status = check_includes.main(folder)
            return status, words.getvalue().splitlines()

    def test_a_sound_tree_is_sound(self):
        self.assertEqual(self.check({}), (0, [""]))

    def test_what_is_not_allowed_is_told_with_its_place(self):
        for changed, expected in (
                ({"tools/zsl/base/Text.cpp": '// a comment\n#include "run/Run.h"\n'}, UPWARD),
                ({"tools/zsl/base/Text.cpp": '\n#  include "../run/Run.h" // why\n'}, UPWARD),
                ({"pipeline/model/Model.h": '#include "base/Text.h"\n'},
                 "pipeline/model/Model.h:1: includes tools/zsl/base/Text.h, and "
                 "pipeline/model -> tools/zsl/base is not allowed"),
                ({"stack/include/pipeline/Shared.h": '#include "bench/Bench.h"\n',
                  "tests/bench/Bench.h": ""},
                 "stack/include/pipeline/Shared.h:1: includes tests/bench/Bench.h, and "
                 "stack/include -> tests is not allowed"),
                ({"tools/zsl/run/Other.h": '#include "Run.h"\n',
                  "tools/zsl/run/Run.h": '#include "run/Other.h"\n'},
                 "headers include each other: tools/zsl/run/Other.h -> "
                 "tools/zsl/run/Run.h -> tools/zsl/run/Other.h"),
                ({"tools/other/New.cpp": ""},
                 "tools/other/New.cpp: in no room of the README's tables")):
            with self.subTest(expected):
                self.assertEqual(self.check(changed), (1, [expected]))

    def test_the_table_itself_is_checked(self):
        for old, new, expected in (
                ("interfaces | |", "interfaces | `pipeline/model/` |",
                 "the README's tables allow a circle: stack/include -> pipeline/model -> stack/include"),
                ("lower room | |", "lower room | `cellar/` |",
                 "README.md: tools/zsl/base may include tools/zsl/cellar, which is no room")):
            with self.subTest(new):
                self.assertEqual(self.check({}, README.replace(old, new)), (1, [expected]))


if __name__ == "__main__":
    unittest.main()
