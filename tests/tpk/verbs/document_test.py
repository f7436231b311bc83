"""docs/tpk.md and the tool tell of the same verbs, arguments and options."""
import itertools
import re
import unittest

from support import SOURCE_ROOT, VERBS, ToolTest

DOCUMENT = (SOURCE_ROOT / "docs/tpk.md").read_text()
SHARED = "every verb"


def rows(*head):
    """The rows of the table with this head: lists of cells."""
    lines = DOCUMENT.split("| " + " | ".join(head) + " |\n")[1].splitlines()
    for row in itertools.takewhile(lambda line: line.startswith("|"), lines[1:]):
        yield [cell.strip().replace("\\|", "|") for cell in re.split(r"(?<!\\)\|", row)[1:-1]]


def quoted(text):
    return re.findall(r"`([^`]*)`", text)


class Document(ToolTest):
    def setUp(self):
        super().setUp()
        # "--output FILE" by verb, as the help has it; the long names alone of what has a short one as well.
        self.options = {}
        self.short = {}
        self.arguments = {}
        for verb in VERBS:
            text = self.tpk("help", verb, code=0).out
            found = re.findall(r"(?m)^  (?:(-\w),)?(--[a-z-]+)( \S+)?(?: .*)?$", text)
            self.options[verb] = {long + value for _, long, value in found}
            self.short.update({short: long for short, long, _ in found if short})
            self.arguments[verb] = re.findall(r"(?m)^  ([A-Z]+) ", text)

    def test_the_verbs(self):
        told = [text.split()[0] for first, _ in rows("verb", "what it does") for text in quoted(first)]
        self.assertEqual(sorted(told), sorted(VERBS))

    def test_the_calls_of_the_verbs(self):
        """What the first table has behind a verb are its arguments, and options of it."""
        for text in (text for first, _ in rows("verb", "what it does") for text in quoted(first)):
            verb, *words = text.split()
            known = " ".join(self.options[verb]) + " " + " ".join(self.short)
            options = [word for word in words if word.startswith("-")]
            values = [after for before, after in zip(words, words[1:]) if before in options]
            for word in options:
                self.assertIn(word, known.split(), text)
                long = self.short.get(word, word)
                self.assertIn(f"{long} {values[options.index(word)]}", self.options[verb], text)
            required = [word for word in words if word not in options and word not in values]
            self.assertEqual(required, self.arguments[verb][:len(required)], text)

    def test_the_options_of_every_verb(self):
        told = {first if first == SHARED else quoted(first)[0]: set(quoted(options))
                for first, options in rows("verb", "its options")}
        shared = told.pop(SHARED)
        self.assertLessEqual(set(told), set(VERBS))
        for verb in VERBS:
            self.assertEqual(told.get(verb, set()) | shared, self.options[verb], verb)

    def test_the_short_names(self):
        shorts, longs = re.search(r"(?m)^(`-.*) are short for (.*)\.$", DOCUMENT).groups()
        self.assertEqual(dict(zip(quoted(shorts), quoted(longs))), self.short)

    def test_the_results_of_every_verb(self):
        told = {text.split()[0] for first, _ in rows("verb", "fields") for text in quoted(first)}
        self.assertEqual(told, set(VERBS))

    def test_whatever_else_is_named_exists(self):
        known = {name.split()[0] for options in self.options.values() for name in options} | {"--version"}
        self.assertLessEqual(set(re.findall(r"(?<![\w-])--[a-z][a-z-]*", DOCUMENT)), known)
        self.assertLessEqual(set(re.findall(r"`tpk ([a-z]+)", DOCUMENT)), set(VERBS))


if __name__ == "__main__":
    unittest.main()
