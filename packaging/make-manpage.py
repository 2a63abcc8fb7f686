#!/usr/bin/env python3
"""Writes a program's manual page from its own --help (and `help COMMAND` for each command).

The help text is the one source: its usage lines become SYNOPSIS, the sentence after them NAME,
headed blocks ("Options:", "Environment:") sections of their own, and indented "TERM  text"
lines definition lists. With --commands, the program's "Commands:" block is replaced by one
subsection per command made from `PROGRAM help COMMAND`.

Usage: make-manpage.py PROGRAM --name NAME --version VERSION --output FILE
                       [--commands] [--see-also PAGE]...
"""

import argparse
import datetime
import os
import re
import subprocess
import sys

TERM_LINE = re.compile(r"^(\s*)(\S.*?)\s{2,}(\S.*)$")
HEADING_LINE = re.compile(r"^([A-Z][A-Za-z ]*):$")


def run_help(program, arguments):
    result = subprocess.run([program, *arguments], capture_output=True, text=True, check=False)
    if result.returncode != 0 or not result.stdout.strip():
        sys.exit(f"make-manpage: '{program} {' '.join(arguments)}' failed "
                 f"(status {result.returncode}): {result.stderr.strip()}")
    return result.stdout


def escape(text):
    """Plain text as roff: backslashes, leading control characters, non-ASCII characters."""
    text = text.replace("\\", "\\e")
    text = "".join(ch if ord(ch) < 128 else f"\\[u{ord(ch):04X}]" for ch in text)
    return text


def literal(text, words):
    """Text with hyphens of options and of the given literal words set as minus signs."""
    def word(match):
        token = match.group(0)
        bare = token.strip("'\"(),.;:[]|")
        if token.startswith("-") or token.lstrip("[").startswith("-") or bare in words:
            return token.replace("-", "\\-")
        return token
    return re.sub(r"\S+", word, escape(text))


def line_start(text):
    """A roff text line must not start with a control character."""
    return "\\&" + text if text[:1] in (".", "'") else text


class Page:
    def __init__(self, name, literals):
        self.name = name
        self.literals = literals
        self.lines = []

    def text(self, text):
        return line_start(literal(text, self.literals))

    def synopsis(self, form):
        """One usage form: the program in bold, upper-case placeholders in italics."""
        # An optional part ("[--depth N]") is never broken across lines.
        form = re.sub(r"\[[^][]*\]", lambda part: part.group(0).replace(" ", "\0"), form)
        words = []
        for token in form.split():
            token_text = literal(token, self.literals)
            token_text = re.sub(r"\b([A-Z][A-Z_]*[A-Z])\b", r"\\fI\1\\fR", token_text)
            if token_text == literal(self.name, self.literals):
                token_text = f"\\fB{token_text}\\fR"
            words.append(token_text.replace("\0", "\\ "))
        self.lines += [".br", line_start(" ".join(words))]

    def paragraph(self, lines):
        self.lines += [".PP", self.text(" ".join(line.strip() for line in lines))]

    def definitions(self, entries):
        for term, description in entries:
            self.lines += [".TP", line_start(f"\\fB{literal(term, self.literals)}\\fR"),
                           self.text(description)]

    def block(self, lines):
        """A help block: a definition list when its first line is "  TERM  text", else text."""
        entries = parse_definitions(lines)
        if entries is None:
            self.paragraph(lines)
        else:
            self.definitions(entries)


def parse_definitions(lines):
    """[(term, description)] when every line is a term line or continues one, else None."""
    entries = []
    column = None
    for line in lines:
        match = TERM_LINE.match(line)
        indent = len(line) - len(line.lstrip())
        if entries and column is not None and indent >= column:
            entries[-1][1] += " " + line.strip()
        # An unindented term ("list     the saved scans") is a word or two, not a sentence.
        elif match and (match.group(1) or len(match.group(2).split()) <= 2):
            entries.append([match.group(2), match.group(3)])
            column = line.index(match.group(3), len(match.group(1)) + len(match.group(2)))
        else:
            return None
    return [tuple(entry) for entry in entries] or None


def split_blocks(lines):
    blocks, current = [], []
    for line in lines:
        if line.strip():
            current.append(line.rstrip())
        elif current:
            blocks.append(current)
            current = []
    if current:
        blocks.append(current)
    return blocks


def parse_help(text, program_name):
    """(usage forms, summary, blocks after the summary) of one help text."""
    lines = text.splitlines()
    if not lines or not lines[0].startswith("Usage: "):
        sys.exit(f"make-manpage: the help of {program_name} does not start with 'Usage: '")
    usage = [lines[0][len("Usage: "):].strip()]
    index = 1
    while index < len(lines) and lines[index].startswith(" ") and lines[index].strip():
        # An indented line goes on a form that ends in "|", else it is a form of its own.
        continuation = lines[index].strip()
        if usage[-1].endswith("|"):
            usage[-1] += " " + continuation
        else:
            usage.append(continuation)
        index += 1
    blocks = split_blocks(lines[index:])
    if not blocks:
        sys.exit(f"make-manpage: the help of {program_name} has no summary")
    summary = " ".join(line.strip() for line in blocks[0])
    return usage, summary, blocks[1:]


def usage_forms(usage_lines, program, command=None):
    """Every alternative of the usage lines as its own form, each starting with the program."""
    forms = []
    for line in usage_lines:
        line = line.rstrip("|").strip()
        if command is None:
            forms.append(line if line.startswith(program) else f"{program} {line}")
            continue
        # "cache list | cache show FILE | cache clear ACCOUNT": split where the command repeats.
        for part in re.split(rf"\s+\|\s+(?={re.escape(command)}\b)", line):
            part = part.strip().rstrip("|").strip()
            forms.append(part if part.startswith(program) else f"{program} {part}")
    return forms


def sentence(summary):
    """The NAME line's description: the summary without its full stop, first letter small."""
    summary = summary.rstrip(".")
    return summary[:1].lower() + summary[1:]


def command_names(block):
    names = []
    for line in block[1:]:
        match = TERM_LINE.match(line)
        if match and match.group(1):
            names.append(match.group(2))
    return names


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("program")
    parser.add_argument("--name", required=True)
    parser.add_argument("--version", required=True)
    parser.add_argument("--output", required=True)
    parser.add_argument("--commands", action="store_true")
    parser.add_argument("--see-also", action="append", default=[])
    arguments = parser.parse_args()

    program = arguments.name
    usage, summary, blocks = parse_help(run_help(arguments.program, ["--help"]), program)

    sections = {"DESCRIPTION": [], "OPTIONS": [], "COMMANDS": [], "ENVIRONMENT": []}
    names = []
    for block in blocks:
        heading = HEADING_LINE.match(block[0])
        if heading:
            title = heading.group(1).upper()
            if title == "COMMANDS" and arguments.commands:
                names = command_names(block)
                continue
            sections.setdefault(title, []).append(block[1:])
        elif parse_definitions(block) and block[0].lstrip().startswith("-"):
            sections["OPTIONS"].append(block)
        else:
            sections["DESCRIPTION"].append(block)

    page = Page(program, {program, *names, "brimvale", "brimvale-cli"})
    epoch = int(os.environ.get("SOURCE_DATE_EPOCH", "0")) or None
    date = (datetime.datetime.fromtimestamp(epoch, datetime.timezone.utc) if epoch
            else datetime.datetime.now(datetime.timezone.utc)).strftime("%Y-%m-%d")
    title = program.upper().replace("-", "\\-")
    page.lines += [
        f'.TH {title} 1 "{date}" "Brimvale {arguments.version}" "User Commands"',
        ".SH NAME",
        f"{literal(program, page.literals)} \\- {escape(sentence(summary))}",
        ".SH SYNOPSIS",
        ".nh",
        ".ad l",
    ]
    for form in usage_forms(usage, program):
        page.synopsis(form)
    page.lines += [".ad", ".hy"]
    page.lines += [".SH DESCRIPTION"]
    page.paragraph([summary])
    for block in sections.pop("DESCRIPTION"):
        page.block(block)

    for title_text, section_blocks in sections.items():
        if title_text == "COMMANDS":
            if not names:
                continue
            page.lines.append(".SH COMMANDS")
            for name in names:
                if name == "help":
                    page.lines += [".SS help", ".nh", ".ad l"]
                    page.synopsis(f"{program} help [COMMAND]")
                    page.lines += [".ad", ".hy"]
                    page.paragraph(["Show the list of commands, or the help of COMMAND."])
                    continue
                command_usage, command_summary, command_blocks = parse_help(
                    run_help(arguments.program, ["help", name]), f"{program} {name}")
                page.lines += [f".SS {literal(name, page.literals)}", ".nh", ".ad l"]
                for form in usage_forms(command_usage, program, name):
                    page.synopsis(form)
                page.lines += [".ad", ".hy"]
                page.paragraph([command_summary + ("" if command_summary.endswith(".") else ".")])
                for block in command_blocks:
                    page.block(block)
            continue
        if not section_blocks:
            continue
        page.lines.append(f".SH {title_text}")
        for block in section_blocks:
            page.block(block)

    if arguments.see_also:
        def reference(entry):
            match = re.fullmatch(r"(.*)\((\d)\)", entry)
            if not match:
                return escape(entry)
            return f"\\fB{literal(match.group(1), page.literals)}\\fR({match.group(2)})"
        page.lines += [".SH SEE ALSO", ", ".join(reference(entry) for entry in arguments.see_also)]

    with open(arguments.output, "w", encoding="ascii") as output:
        output.write("\n".join(page.lines) + "\n")


if __name__ == "__main__":
    main()
