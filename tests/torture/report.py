"""The page that tells what the rows did and saw. Its prose is report-template.md."""

import pathlib
import textwrap

TEMPLATE = pathlib.Path(__file__).with_name("report-template.md")
WIDTH = 100


def cell(value):
    if isinstance(value, set):
        value = sorted(value)
    if isinstance(value, list):
        value = ", ".join(map(str, value))
    return str(value).replace("|", "\\|")


def table(lines):
    return "\n".join("| " + " | ".join(map(cell, line)) + " |" for line in lines)


def item(text, indent=""):
    starts = {"initial_indent": indent + "- ", "subsequent_indent": indent + "  "}
    return textwrap.fill(text, WIDTH, **starts, break_long_words=False, break_on_hyphens=False)


def described(label, text):
    """A list item; what is too long for two lines becomes a list of its parts."""
    if len(text) < 2 * WIDTH or "; " not in text:
        return item(f"{label}: {text}")
    return "\n".join([f"- {label}:"] + [item(part, "  ") for part in text.split("; ")])


def section(name, done, times, expected, seen, verdict):
    parts = described("Done", done), described("Expected", expected), described("Seen", seen)
    return "\n".join((f"### {name}", "", *parts))


def write(path, form, machine, results, manners):
    """A result is a name, what was done, how often, what was expected, what was seen, the verdict;
    a line of the manners is what was looked at, what is allowed, what was seen, the verdict."""
    summary = table((name, times, verdict) for name, _, times, _, _, verdict in results)
    rows = "\n\n".join(section(*result) for result in results)
    values = {"form": form, "machine": machine, "summary": summary, "rows": rows}
    page = TEMPLATE.read_text().format(**values, manners=table(manners))
    pathlib.Path(path).write_text(page)
