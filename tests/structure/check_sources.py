#!/usr/bin/env python3
"""Checks that both builds list every source file of each library that goes to the device."""

import pathlib
import re
import sys

# By target: the folder of its sources. On the device its name begins with lib.
LIBRARIES = {
    "zebcam_pipelinemodel_zsl": "pipeline/model/zsl",
    "zebcam_zsl_recorder": "pipeline/recorder",
}


def android_sources(text: str, target: str) -> set[str]:
    for module in re.findall(r"^\w+ \{\n(.*?)^\}", text, re.DOTALL | re.MULTILINE):
        if re.search(rf'\bname:\s*"lib{target}"', module):
            srcs = re.search(r"\bsrcs:\s*\[(.*?)\]", module, re.DOTALL)
            return set(re.findall(r'"([^"]+)"', srcs.group(1))) if srcs else set()
    return set()


def cmake_sources(text: str, target: str) -> set[str]:
    listed = re.search(rf"add_library\({target} SHARED\s(.*?)\)", text, re.DOTALL)
    return {f"pipeline/{name}" for name in listed.group(1).split()} if listed else set()


def differences(top: pathlib.Path, target: str, folder: str) -> list[str]:
    files = {str(p.relative_to(top)) for p in top.glob(f"{folder}/**/*.cpp")}
    builds = {
        "Android.bp": android_sources((top / "Android.bp").read_text(), target),
        "pipeline/CMakeLists.txt": cmake_sources((top / "pipeline/CMakeLists.txt").read_text(),
                                                 target),
    }
    found = [] if files else [f"{folder}: no source files"]
    found += [f"{build}: lacks {name}" for build, listed in builds.items()
              for name in sorted(files - listed)]
    found += [f"{build}: {name} does not exist" for build, listed in builds.items()
              for name in sorted(listed - files)]
    return found


def main(root: str) -> int:
    found = [difference for target, folder in LIBRARIES.items()
             for difference in differences(pathlib.Path(root), target, folder)]
    for difference in found:
        print(difference)
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
