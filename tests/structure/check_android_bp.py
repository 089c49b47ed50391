#!/usr/bin/env python3
"""Holds the device's build file against its build system's parser and against CMake.

usage: check_android_bp.py READER ANDROID_BP LIBRARIES_JSON

READER prints the modules of ANDROID_BP as JSON (blueprint/main.go); LIBRARIES_JSON is what CMake
builds the libraries of, written while it configures.
"""

import glob
import json
import os
import re
import subprocess
import sys

# Properties as the build system of the released platform documents them, by kind of module:
# https://ci.android.com/builds/latest/branches/aosp-build-tools/targets/linux/view/soong_build.html
COMMON = {"name", "defaults", "vendor", "compile_multilib"}
LINKED = COMMON | {
    "srcs", "exclude_srcs", "cflags", "cppflags", "cpp_std", "ldflags", "local_include_dirs",
    "header_libs", "shared_libs", "static_libs"}
PROPERTIES = {
    "cc_defaults": LINKED,
    "cc_library_headers": COMMON | {"export_include_dirs", "header_libs",
                                    "export_header_lib_headers"},
    "cc_library_shared": LINKED | {"version_script", "export_include_dirs",
                                   "export_header_lib_headers"},
    "cc_test": LINKED | {"test_suites"},
    "filegroup": {"name", "srcs"},
}
# What others bring: the platform and the vendor's camera stack (docs/porting.md).
FOREIGN = {"libcutils", "liblog", "libutils", "libgmock"} | {
    f"libzebcam_{name}" for name in (
        "debugutils", "imgbuf", "metadata", "metastore", "pipeline", "pipelinemodel_utils",
        "stdutils", "streamutils", "ulog")}
# Which only one compiler of the host has, which is set where the options of a build are, and which
# are the device's alone: it builds without exceptions and type information where nobody asks.
HOST_ONLY = {"-Wno-restrict"}
DEVICE_ONLY = {"-Wthread-safety", "-Werror", "-fexceptions", "-frtti"}
# The vendor's take the place of these, which on the host bring base/ along.
EXCHANGED = ("stack/", "platform/")


class BuildFile:
    def __init__(self, top, modules):
        self.top = top
        self.modules = {module["properties"].get("name", ""): module for module in modules}
        self.found = []
        if len(self.modules) < len(modules):
            names = [module["properties"].get("name", "") for module in modules]
            self.fail(None, f"defined twice: {sorted({n for n in names if names.count(n) > 1})}")

    def fail(self, module, text):
        where = f"Android.bp:{module['line']}: {module['properties'].get('name')}: " if module else ""
        self.found.append(where + text)

    def values(self, module, name):
        """Of a property, those of the module's defaults included."""
        own = module["properties"]
        inherited = [value for default in own.get("defaults", []) if default in self.modules
                     for value in self.values(self.modules[default], name)]
        value = own.get(name, [])
        return inherited + (value if isinstance(value, list) else [value])

    def sources(self, module):
        named = []
        for source in self.values(module, "srcs"):
            if source.startswith(":"):
                named += self.sources(self.modules.get(source[1:], {"properties": {}}))
            else:
                named += glob.glob(source, root_dir=self.top, recursive=True) or [source]
        return set(named) - set(self.values(module, "exclude_srcs"))

    def exported(self, module):
        """Folders that whoever links the module finds headers in."""
        return set(self.values(module, "export_include_dirs")).union(
            *(self.exported(self.modules[name])
              for name in self.values(module, "export_header_lib_headers")))

    def searched(self, module):
        """Folders that the module's own sources find headers in, this project's only."""
        linked = self.values(module, "header_libs") + self.values(module, "shared_libs")
        return set(self.values(module, "local_include_dirs")).union(
            *(self.exported(self.modules[name]) for name in linked if name in self.modules))

    def check(self, module):
        properties = module["properties"]
        for name in sorted(set(properties) - PROPERTIES.get(module["type"], set())):
            self.fail(module, f"{module['type']} has no property {name}")
        for name, value in properties.items():
            twice = sorted({item for item in value if value.count(item) > 1}) if isinstance(
                value, list) else []
            if twice:
                self.fail(module, f"{name} lists {', '.join(twice)} twice")
        named = [name for kind in ("defaults", "header_libs", "shared_libs", "static_libs",
                                   "export_header_lib_headers") for name in properties.get(kind, [])]
        files = [properties["version_script"]] if "version_script" in properties else []
        files += [name for kind in ("srcs", "exclude_srcs", "local_include_dirs",
                                    "export_include_dirs") for name in properties.get(kind, [])]
        for name in named + [file[1:] for file in files if file.startswith(":")]:
            if name not in self.modules and name not in FOREIGN:
                self.fail(module, f"there is no module {name}")
        for file in files:
            if not file.startswith(":") and not glob.glob(file, root_dir=self.top, recursive=True):
                self.fail(module, f"there is no {file}")

    def compare(self, target, library):
        """Of one library what CMake has and what the device's build has."""
        module = self.modules.get(f"lib{target}")
        if module is None:
            self.fail(None, f"Android.bp: there is no module lib{target}")
            return
        cflags = set(self.values(module, "cflags") + self.values(module, "cppflags"))
        for what, device, host in (
                ("source", self.sources(module), set(library["sources"])),
                ("flag", cflags - DEVICE_ONLY, set(library["flags"]) - HOST_ONLY - DEVICE_ONLY),
                ("include folder", self.searched(module), self.ours(library["searched"])),
                ("exported folder", self.exported(module), self.ours(library["exported"]) - {"base/include"}),
                ("version script", set(self.values(module, "version_script")),
                 set(library["versionScripts"])),
                ("standard", set(self.values(module, "cpp_std")), {library["standard"]})):
            for name in sorted(device - host):
                self.fail(module, f"CMake does not have the {what} {name}")
            for name in sorted(host - device):
                self.fail(module, f"lacks the {what} {name}, which CMake has")

        # What else CMake hardens, the device's build does by itself.
        for flag in sorted(set(self.values(module, "ldflags")) - set(library["linkOptions"])):
            self.fail(module, f"CMake does not have the link flag {flag}")

    @staticmethod
    def ours(folders):
        return {folder for folder in folders if not folder.startswith(EXCHANGED)}


def library_of(facts, top):
    """What CMake tells of a target, with paths from the top folder; what lies elsewhere is left out."""
    def inside(paths, base):
        whole = [os.path.normpath(os.path.join(base, path)) for path in paths if path]
        return [os.path.relpath(path, top) for path in whole if path.startswith(top + os.sep)]

    hidden = ["-fvisibility=" + facts["visibility"]] if facts["visibility"] else []
    hidden += ["-fvisibility-inlines-hidden"] if facts["inlinesHidden"] else []
    scripts = [match.group(1) for option in facts["linkOptions"]
               if (match := re.search(r"--version-script=(.*)", option))]
    return {
        "sources": [path for path in inside(facts["sources"], facts["folder"])
                    if path.endswith(".cpp")],
        "flags": [flag for flag in facts["options"] if flag] + hidden,
        "searched": inside(facts["searched"], facts["folder"]),
        "exported": inside(facts["exported"], facts["folder"]),
        "linkOptions": facts["linkOptions"],
        "versionScripts": inside(scripts, facts["folder"]),
        "standard": f"c++{facts['standard']}",
    }


def main(reader, file, libraries):
    read = subprocess.run([reader, file], capture_output=True, text=True, check=False)
    if read.returncode != 0:
        print(read.stderr, end="")
        return 1
    top = os.path.dirname(os.path.abspath(file))
    build = BuildFile(top, json.loads(read.stdout))
    for module in build.modules.values():
        build.check(module)
    with open(libraries, encoding="utf-8") as facts:
        for target, told in json.load(facts).items():
            build.compare(target, library_of(told, top))
    # What lies in a library's folder and is listed nowhere is in neither build.
    listed = set().union(*(build.sources(module) for module in build.modules.values()))
    for path in sorted(set(glob.glob("pipeline/**/*.cpp", root_dir=top, recursive=True)) - listed):
        build.fail(None, f"{path} is in no build")
    with open(os.path.join(top, "TEST_MAPPING"), encoding="utf-8") as mapping:
        for group in json.load(mapping).values():
            for test in group:
                if build.modules.get(test["name"], {}).get("type") != "cc_test":
                    build.fail(None, f"TEST_MAPPING: there is no test {test['name']}")
    print("\n".join(build.found), end="\n" if build.found else "")
    return 1 if build.found else 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
