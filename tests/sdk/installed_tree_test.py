#!/usr/bin/env python3
"""Installs the build tree, moves the result elsewhere and uses it as somebody outside would."""
import csv
import json
import os
import pathlib
import re
import shlex
import shutil
import signal
import subprocess
import tempfile
import unittest

CMAKE, CXX, LIB_DIR = (os.environ[name] for name in ("CMAKE", "CXX", "LIB_DIR"))
BUILD_DIR, SOURCE_DIR = (pathlib.Path(os.environ[name]) for name in ("BUILD_DIR", "SOURCE_DIR"))
HAS_PYTHON = os.environ["HAS_PYTHON"] == "1"
EXAMPLE = SOURCE_DIR / "docs/examples/serve_capture.cpp"
RECORDING = SOURCE_DIR / "tools/zsl/demo/demo_30fps.csv"
CAPTURES = 40
STRICT = ["-Wall", "-Wextra", "-Wpedantic", "-Werror"]


def run(*command, expected=0, **environment):
    """Runs a command; its standard output, or with an expected failure its standard error."""
    done = subprocess.run([str(part) for part in command], capture_output=True, text=True,
                          env={**os.environ, **environment}, cwd=SOURCE_DIR, timeout=200)
    if done.returncode != expected:
        raise AssertionError(f"{shlex.join(map(str, command))} ended with {done.returncode}:\n"
                             f"{done.stdout}{done.stderr}")
    return done.stdout if expected == 0 else done.stderr


def is_settled(row):
    """Whether a frame of the recording has an image and nothing in it was still changing."""
    focuses = int(row["AF mode"]) in range(1, 5)
    moves = row["Lens state"] == "1" or row["AF state"] in ("1", "3")
    return row["Error"] != "1" and row["AE stable"] != "0" and not (focuses and moves)


class InstalledTreeTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.work = pathlib.Path(tempfile.mkdtemp(prefix="zsl-installed-"))
        cls.addClassCleanup(shutil.rmtree, cls.work)
        run(CMAKE, "--install", BUILD_DIR, "--prefix", cls.work / "first place")
        cls.tree = cls.work / "moved"
        (cls.work / "first place").rename(cls.tree)
        cls.zsl = cls.tree / "bin/zsl"
        cls.kit = cls.tree / "share/zebcam/selector"
        cls.policy = cls.build_with_cmake(cls.kit) / "libnearest_settled.so"

    @classmethod
    def build_with_cmake(cls, sources):
        folder = cls.work / f"build-{sources.name}"
        run(CMAKE, "-S", sources, "-B", folder, "-G", "Ninja", f"-DCMAKE_PREFIX_PATH={cls.tree}",
            f"-DCMAKE_CXX_COMPILER={CXX}")
        run(CMAKE, "--build", folder)
        return folder

    def pkg_config(self, *arguments):
        folder = self.tree / LIB_DIR / "pkgconfig"
        return shlex.split(run("pkg-config", *arguments, PKG_CONFIG_PATH=str(folder)))

    def replay(self, policy, **environment):
        report = self.work / "report.json"
        run(self.zsl, "replay", RECORDING, "--captures", CAPTURES, "--policy", policy, "--json", report,
            **environment)
        return json.loads(report.read_text())

    def check_example(self, program):
        words = run(program)
        self.assertIn("served 1 capture(s); still waiting: no\n", words)
        self.assertRegex(words, r"shutter \d+ ms before the press, from the history: yes\n")

    def test_example_builds_and_runs_by_cmake(self):
        self.check_example(self.build_with_cmake(EXAMPLE.parent) / "serve_capture")

    def test_example_builds_and_runs_by_pkg_config(self):
        program = self.work / "serve_capture"
        run(CXX, *STRICT, EXAMPLE, *self.pkg_config("--cflags", "--libs", "zebcam-zsl"),
            "-o", program)
        self.check_example(program)

    def test_recorder_is_used_by_pkg_config_and_its_recording_replayed(self):
        source, recording = self.work / "record.cpp", self.work / "served.zslrec"
        create = 'auto zsl = model::IZslProcessor::createInstance(0, "serve_capture");\n'
        example = EXAMPLE.read_text()
        self.assertIn(create, example)
        source.write_text("#include <ZslRecorder.h>\n" + example.replace(
            create, create.replace("auto zsl", "auto plain") +
            f'auto zsl = model::ZslRecorder::create(0, plain, {{.path = "{recording}"}});\n'))
        program = self.work / "record"
        run(CXX, *STRICT, "-Wno-missing-field-initializers", source,
            *self.pkg_config("--cflags", "--libs", "zebcam-zsl-recorder"), "-o", program)
        self.check_example(program)
        self.assertIn("same decisions in ", run(self.zsl, "replay", recording))

    def test_libraries_carry_a_version(self):
        libraries = sorted((self.tree / LIB_DIR).glob("libzebcam_*.so"))
        self.assertEqual(len(libraries), 4)
        needed = run("readelf", "-d", self.zsl)
        for library in libraries:
            self.assertTrue(library.is_symlink(), library)
            self.assertIn(f"[{library.name}.1]", run("readelf", "-d", library))
            self.assertIn(f"[{library.name}.1]", needed)

    def test_manual_and_completions_have_every_command_and_option(self):
        share = self.tree / "share"
        shells = {name: (share / name).read_text() for name in (
            "bash-completion/completions/zsl", "zsh/site-functions/_zsl",
            "fish/vendor_completions.d/zsl.fish")}
        commands = re.findall(r"^  (\w+) {2,}[A-Z]", run(self.zsl, "help"), re.MULTILINE)
        self.assertGreater(len(commands), 7)
        for command in commands:
            page = (share / f"man/man1/zsl-{command}.1").read_text().replace("\\-", "-")
            options = re.findall(r"^  (?:-\w,)?--([\w-]+)", run(self.zsl, "help", command), re.MULTILINE)
            self.assertIn("help", options)
            for option in options:
                self.assertIn(f"--{option}", page, command)
                for name, text in shells.items():
                    here = re.search(rf"(?s)seen_subcommand_from {command}'.*$|\n    {command}\).*?;;\n"
                                     rf"(?!        )", text).group()
                    self.assertIn(f"-l {option} " if "fish" in name else f"--{option}", here, name)
            self.assertIn(f"zsl-{command}", (share / "man/man1/zsl.1").read_text().replace("\\-", "-"))
        for name in ("README.md", "LICENSE", "CHANGELOG.md", "CONTRIBUTING.md", "docs/replay.md"):
            self.assertTrue((share / "zebcam" / name).is_file(), name)

    def test_bash_completes(self):
        script = self.tree / "share/bash-completion/completions/zsl"

        def completed(*words):
            line = " ".join(words)
            return run("bash", "-c", f"source {shlex.quote(str(script))}; COMP_WORDS=({line}); "
                       f"COMP_CWORD={len(words) - 1}; _zsl 2>/dev/null; echo ${{COMPREPLY[@]}}").split()

        self.assertEqual(completed("zsl", "rep"), ["replay"])
        self.assertEqual(completed("zsl", "replay", "--fau"), ["--fault"])
        self.assertEqual(completed("zsl", "replay", "--policy", "m"), ["multiframe"])
        self.assertEqual(completed("zsl", "replay", "--policy", "=", "cs"), ["cshot"])
        self.assertIn("p95_lag_ms", completed("zsl", "compare", "a.csv", "--fail-if", "p95"))
        self.assertEqual(completed("zsl", "list", "fa"), ["faults"])
        self.assertIn("tools/", [word.rstrip("/") + "/" for word in completed("zsl", "replay", "too")])

    def test_tool_tells_version_and_revision(self):
        self.assertRegex(run(self.zsl, "--version"), r"^zsl \d+\.\d+\.\d+ \([\w.-]+\)\n$")

    def test_interrupted_replay_leaves_the_old_result_and_nothing_else(self):
        folder = self.work / "interrupted"
        folder.mkdir()
        (folder / "r.json").write_text("old")
        with subprocess.Popen([self.zsl, "replay", "-", "--json", folder / "r.json"],
                              stdin=subprocess.PIPE) as replay:
            # It waits for a recording that nobody sends.
            while len(list(folder.iterdir())) < 2:
                self.assertIsNone(replay.poll())
            replay.terminate()
            self.assertEqual(replay.wait(), -signal.SIGTERM)
        self.assertEqual([path.read_text() for path in folder.iterdir()], ["old"])

    def test_policy_built_by_pkg_config_chooses_like_the_one_built_by_cmake(self):
        library = self.work / "by_pkg_config.so"
        run(CXX, *STRICT, "-shared", "-fPIC", *sorted(self.kit.glob("*.cpp")),
            *self.pkg_config("--cflags", "zebcam-selector"), "-o", library)
        self.assertEqual(self.replay(library)["captures"], self.replay(self.policy)["captures"])

    def test_best_shot_is_found_beside_the_tool_and_is_the_one_of_the_kit(self):
        self.assertIn("\nbest-shot ", run(self.zsl, "list", "policies"))
        shipped = self.replay("best-shot")
        self.assertEqual(shipped["options"]["policy"], "best-shot")
        built = self.replay(self.policy.with_name("libbest_shot.so"))
        self.assertEqual(shipped["captures"], built["captures"])
        self.assertNotEqual(shipped["captures"], self.replay("default")["captures"])
        if HAS_PYTHON:
            rule = self.replay(self.kit / "best_shot" / "best_shot.py")
            self.assertEqual([capture["frames"] for capture in rule["captures"]],
                             [capture["frames"] for capture in shipped["captures"]])
        words = run(self.zsl, "compare", RECORDING, "--policy", "best-shot", "--policy", "default",
                    "--policy-option", "burst=run,spread", "--policy-option", "min_share=0.5")
        self.assertRegex(words, r"\n *best-shot +spread ")
        for option, expected in {"min_share=2": "min_share is '2': expected 0 to 1",
                                 "max_locks=1.5": "max_locks is '1.5': expected 0 to 1000",
                                 "burst=best": "burst is 'best': expected run or spread"}.items():
            self.assertIn(expected, run(self.zsl, "replay", RECORDING, "--policy", "best-shot",
                                        "--policy-option", option, expected=2))

    def test_policy_takes_the_nearest_settled_frame(self):
        with RECORDING.open(newline="") as file:
            rows = {int(row["Frame No."]): row for row in csv.DictReader(file)}
        report = self.replay(self.policy)
        self.assertEqual(len(report["captures"]), CAPTURES)
        self.assertTrue(report["isClean"], report["failures"])
        for capture in report["captures"]:
            chosen = capture["frames"][0]
            offered = capture["tries"][chosen["try"]]["historyFrames"]

            def distance(number):
                return abs(int(rows[number]["Timestamp[nanosec]"]) - capture["pressNs"])

            self.assertEqual(chosen["frameNo"],
                             min(filter(lambda number: is_settled(rows[number]), offered),
                                 key=distance), capture)

    def test_policy_that_cannot_be_made_is_an_error(self):
        words = run(self.zsl, "replay", RECORDING, "--policy", self.policy,
                    "--policy-option", "max_age_ms=5s", expected=2)
        self.assertIn("zsl.policy.max_age_ms is '5s': expected 0 to 60000 ms", words)
        self.assertIn(str(self.policy), words)

    def test_readme_quotes_example_and_demo_as_they_are(self):
        readme = (SOURCE_DIR / "README.md").read_text()
        self.assertIn(EXAMPLE.read_text().split("int main() {\n", 1)[1], readme)
        script = (SOURCE_DIR / "scripts/demo").read_text().replace("\\\n", "")
        options = re.search(r"demo_30fps.csv (--.+)",
                            (SOURCE_DIR / "tools/zsl/demo/README.md").read_text())[1]
        for command in re.findall(r"^build/demo/bin/zsl (.*)", script, re.MULTILINE):
            command = command.replace("$options", options).replace(' "$@"', "")
            words = run(self.zsl, *shlex.split(command.replace("build/demo", str(self.work))))
        self.assertIn(words.replace(str(self.work), "build/demo"), readme)

    def test_fault_examples_are_as_they_are(self):
        text = (SOURCE_DIR / "docs/faults.md").read_text()
        examples = re.findall(r"^    \$ zsl (.*)\n((?:    .*\n)+)", text, re.MULTILINE)
        self.assertGreater(len(examples), 10)
        for arguments, quoted in examples:
            told = iter(run(self.zsl, *shlex.split(arguments)).splitlines())
            for line in quoted.splitlines():
                self.assertIn(line.removeprefix("    "), told, f"in this order after {arguments}")


if __name__ == "__main__":
    unittest.main(verbosity=2)
