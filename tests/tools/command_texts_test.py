"""Usage: command_texts_test.py PLANEX TOOLS_FOLDER. The options that --help tells, the manual page
and the completion are the same."""
import pathlib
import re
import subprocess
import sys
import unittest

PLANEX, TOOLS = sys.argv[1], pathlib.Path(sys.argv[2])


def output(*arguments, **more):
    return subprocess.run(arguments, check=True, capture_output=True, text=True, **more).stdout


def options_of(text):
    return set(re.findall(r"(?<![\w-])--[a-z][a-z-]*", text))


COMMANDS = re.findall(r"^  ([a-z]+) ", output(PLANEX, "--help").split("Subcommands:")[1], re.M)


def help_options(command):
    # An option stands at the start of its line; texts and examples name others.
    lines = output(PLANEX, command, "--help").splitlines()
    return set().union(*(options_of(re.split(r"\s{2,}|Excludes", line.strip())[0])
                         for line in lines if re.match(r"  (-\w,)?--", line)))


class Texts(unittest.TestCase):
    def test_commands(self):
        self.assertEqual(len(COMMANDS), 8)

    def test_every_command_gives_examples(self):
        for command in COMMANDS:
            self.assertRegex(output(PLANEX, command, "--help"), rf"(?s)Examples:.*planex {command} ")

    def test_manual_page(self):
        page = (TOOLS / "man/planex.1.in").read_text().replace("\\-", "-")
        told = set().union(*map(help_options, COMMANDS)) | {"--version"}
        self.assertEqual(options_of(re.sub(r"\\f[A-Z]", " ", page)), told)
        for command in COMMANDS:
            self.assertIn(f".SS {command}\n", page)

    def test_completion(self):
        script = """
            source completion/planex
            COMP_WORDS=(planex "$1" --); COMP_CWORD=2; _planex planex -- "$1"
            printf '%s\\n' "${COMPREPLY[@]}"
        """
        for command in COMMANDS:
            words = output("bash", "-c", script, "bash", command, cwd=TOOLS).split()
            self.assertEqual(set(words), help_options(command), command)


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0]])
