#!/usr/bin/env python3
"""Checks that both builds of the processor's library list every one of its source files."""

import pathlib
import re
import sys

LIBRARY = "libzebcam_pipelinemodel_zsl"


def android_sources(text: str) -> set[str]:
    for module in re.findall(r"^\w+ \{\n(.*?)^\}", text, re.DOTALL | re.MULTILINE):
        if re.search(rf'\bname:\s*"{LIBRARY}"', module):
            srcs = re.search(r"\bsrcs:\s*\[(.*?)\]", module, re.DOTALL)
            return set(re.findall(r'"([^"]+)"', srcs.group(1))) if srcs else set()
    return set()


def cmake_sources(text: str) -> set[str]:
    listed = re.search(r"add_library\(zebcam_pipelinemodel_zsl SHARED\s(.*?)\)", text, re.DOTALL)
    return {f"pipeline/{name}" for name in listed.group(1).split()} if listed else set()


def main(root: str) -> int:
    top = pathlib.Path(root)
    files = {str(p.relative_to(top)) for p in top.glob("pipeline/model/zsl/**/*.cpp")}
    builds = {
        "Android.bp": android_sources((top / "Android.bp").read_text()),
        "pipeline/CMakeLists.txt": cmake_sources((top / "pipeline/CMakeLists.txt").read_text()),
    }
    differences = [f"{build}: lacks {name}" for build, listed in builds.items()
                   for name in sorted(files - listed)]
    differences += [f"{build}: {name} does not exist" for build, listed in builds.items()
                    for name in sorted(listed - files)]
    for difference in differences:
        print(difference)
    return 1 if differences or not files else 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
