#!/usr/bin/env python3
"""Checks that both builds list every source file of each library that goes to the device."""

import pathlib
import re
import sys

# By target: where CMake lists its sources, and their patterns. On the device its name begins with
# lib.
LIBRARIES = {
    "zebcam_pipelinemodel_zsl": ("pipeline/CMakeLists.txt", ["pipeline/model/zsl/**/*.cpp"]),
    "zebcam_zsl_recorder": ("pipeline/CMakeLists.txt", ["pipeline/recorder/**/*.cpp"]),
    "zebcam_best_shot": ("sdk/CMakeLists.txt",
                         ["sdk/selector/best_shot/*.cpp", "sdk/selector/FrameFacts.cpp",
                          "sdk/selector/Parameters.cpp"]),
}


def android_sources(text: str, target: str) -> set[str]:
    for module in re.findall(r"^\w+ \{\n(.*?)^\}", text, re.DOTALL | re.MULTILINE):
        if re.search(rf'\bname:\s*"lib{target}"', module):
            srcs = re.search(r"\bsrcs:\s*\[(.*?)\]", module, re.DOTALL)
            return set(re.findall(r'"([^"]+)"', srcs.group(1))) if srcs else set()
    return set()


def cmake_sources(top: pathlib.Path, file: str, target: str) -> set[str]:
    text = (top / file).read_text().replace("${kit}", "selector")
    listed = re.search(rf"add_library\({target} (?:SHARED|MODULE)\s(.*?)\)", text, re.DOTALL)
    folder = pathlib.PurePath(file).parent
    return {str(folder / name) for name in listed.group(1).split()} if listed else set()


def differences(top: pathlib.Path, target: str, lists: str, patterns: list[str]) -> list[str]:
    files = {str(p.relative_to(top)) for pattern in patterns for p in top.glob(pattern)}
    builds = {
        "Android.bp": android_sources((top / "Android.bp").read_text(), target),
        lists: cmake_sources(top, lists, target),
    }
    found = [] if files else [f"{target}: no source files"]
    found += [f"{build}: lacks {name}" for build, listed in builds.items()
              for name in sorted(files - listed)]
    found += [f"{build}: {name} does not exist" for build, listed in builds.items()
              for name in sorted(listed - files)]
    return found


def main(root: str) -> int:
    found = [difference for target, (lists, patterns) in LIBRARIES.items()
             for difference in differences(pathlib.Path(root), target, lists, patterns)]
    for difference in found:
        print(difference)
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
