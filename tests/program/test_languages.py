"""A listing and a whole shutdown in each language that is shipped, on a host without generated locales; and catalogs that are
damaged or somebody else's, which must cost no more than their language."""
import gettext
import re
import struct
from locale import normalize

import pytest

from box import ALL_SPECIFIED, BIN, BUILD, GATHERING, REPO, initiating, until_ended

CATALOGS = BUILD / "locale"
LANGUAGES = {name: normalize(f"{name}.UTF-8") for name in (REPO / "po/LINGUAS").read_text().split()}
FLEET = (f"{BIN}/momuhe ignore=all\n{BIN}/halvd\n{BIN}/strayd\n"
         "/opt/other/mapper map=/usr/quarn/corvane/lib/libsampled.so\n/opt/other/editor cwd=/usr/quarn/corvane/bin\n")


def english():
    """The English text of each key, as the program's own table has it."""
    texts = {}
    for key, text in re.findall(r'^msgctxt "(\w+)"\nmsgid ((?:".*"\n)+)', (REPO / "po/cvstop.pot").read_text(), re.M):
        texts[key] = "".join(re.findall(r'"(.*)"', text)).replace("\\n", "\n").replace('\\"', '"')
    return texts


ENGLISH = english()
NO_LOCALES = "mount -t tmpfs tmpfs /usr/lib/locale\n"


class Speaker:
    """Says the program's messages in a language."""

    def __init__(self, language):
        with open(CATALOGS / language / "LC_MESSAGES/cvstop.mo", "rb") as file:
            self.catalog = gettext.GNUTranslations(file)

    def __call__(self, key, *arguments):
        text = self.catalog.pgettext(key, ENGLISH[key])
        assert text != ENGLISH[key] or key in ("MsgCvs0205N", "MsgCvs0221N", "MsgCvs0215N")
        return text % arguments

    def table(self, rows, header):
        """A column is as wide as its widest cell, counted in characters; a cell is padded by its bytes."""
        labels = [self(key) for key in ("MsgCvs0205N", "MsgCvs0210N", "MsgCvs0215N", "MsgCvs0220N")]
        names = {"Corvane": self("MsgCvs0221N"), "Third Party": self("MsgCvs0222N")}
        rows = [[name, path, str(pid), names[category]] for name, path, pid, category in rows]
        widths = [max(len(row[column]) for row in rows + ([labels] if header else [])) for column in range(4)]
        widths[3] = max(widths[3], *(len(name) for name in names.values()))
        lines = [labels, ["-" * width for width in widths]] * header + rows
        return "".join(" ".join(cell + " " * (width - len(cell.encode())) for cell, width in zip(line, widths)) + "\n"
                       for line in lines)


def rows_of(result):
    known = [("momuhe", f"{BIN}/momuhe", "Corvane"), ("halvd", f"{BIN}/halvd", "Corvane"), ("strayd", f"{BIN}/strayd", "Corvane"),
             ("mapper", "/opt/other/mapper", "Third Party"), ("editor", "/opt/other/editor", "Third Party")]
    return sorted(((name, path, result.pid(name), category) for name, path, category in known), key=lambda row: row[2])


@pytest.mark.sanitized
@pytest.mark.parametrize("language, locale", LANGUAGES.items(), ids=LANGUAGES)
def test_listing(host, language, locale):
    say = Speaker(language)
    result = host(FLEET).run("-l", "-3", before=NO_LOCALES, env={"LC_ALL": locale})
    assert result.stdout == say.table(rows_of(result), header=True)
    assert (result.stderr, result.status) == ("", 0)


@pytest.mark.parametrize("language, locale", LANGUAGES.items(), ids=LANGUAGES)
def test_whole_shutdown(host, language, locale):
    say = Speaker(language)
    result = host(FLEET).run("-k", "-3", before=NO_LOCALES, env={"LC_ALL": locale}, after=until_ended("/opt/other/mapper"))
    rows = rows_of(result)
    momuhe = result.pid("momuhe")
    left = [row for row in rows if row[0] not in ("halvd", "strayd")]
    expected = (
        say("MsgCvs0005N") + say("MsgCvs0010N", 5) + say("MsgCvs0255N", f"{BIN}/momuhe")
        + say("MsgCvs0070N", f"{BIN}/halvd") + say("MsgCvs0255N", f"{BIN}/strayd")
        + 3 * say("MsgCvs0235N", 1, f"momuhe ({momuhe})") + say("MsgCvs0240N", "momuhe", momuhe)
        + say("MsgCvs0023N") + say.table(left, header=False) + say("MsgCvs0025N", 1)
        + "".join(say("MsgCvs0255N", row[1]) for row in left if row[0] != "editor")
        + say("MsgCvs0030N") + say("MsgCvs0033N", 2))
    # Where the kernel has not yet ended the mapper, it is listed, or told and signalled once more.
    mapper = [row for row in rows if row[0] == "mapper"]
    listed = say.table(mapper, header=False)
    told = say("MsgCvs0260N", "mapper", mapper[0][2]) + say("MsgCvs0255N", "/opt/other/mapper")
    assert result.stdout in (expected, expected + listed, expected + listed + told)
    assert (result.stderr, result.status) == ("", 1)
    # The log is English in every language.
    assert "Attempting to kill remaining 1 process(es) " in result.texts("Main")


@pytest.mark.sanitized
@pytest.mark.parametrize("language, locale", LANGUAGES.items(), ids=LANGUAGES)
def test_bad_command_line_and_usage(host, language, locale):
    say = Speaker(language)
    here = host()
    result = here.run("-x", env={"LC_ALL": locale})
    program = f"{BIN}/cvstop"
    usage = say("MsgCvs0155N", program) + ENGLISH["MsgCvs0165N"] % program + ENGLISH["MsgCvs0190N"] % program
    assert (result.stdout, result.status) == (say("MsgCvs0145N", "-x") + usage, 20)
    result = here.run("-h", env={"LC_ALL": locale})
    assert (result.stdout, result.status) == (usage, 0)


def mo_file(entries, order="<"):
    """A catalog of these (context and id, text) pairs, as msgfmt lays one out."""
    entries = sorted(entries)
    strings, tables = b"", [b"", b""]
    begin = 28 + 16 * len(entries)
    for column in (0, 1):
        for entry in entries:
            tables[column] += struct.pack(order + "II", len(entry[column]), begin + len(strings))
            strings += entry[column] + b"\0"
    return struct.pack(order + "7I", 0x950412DE, 0, len(entries), 28, 28 + 8 * len(entries), 0, 0) + b"".join(tables) + strings


@pytest.mark.parametrize("order", ["<", ">"])
def test_a_catalog_of_our_making_is_read(host, order):
    """What the damaged ones below are damaged from."""
    here = host()
    here.write("/usr/quarn/corvane/locale/de/LC_MESSAGES/cvstop.mo",
               mo_file([(b"MsgCvs0145N\4Unknown option [%s]\n", b"Nanu [%s]\n")], order))
    assert here.run("-x", env={"LC_ALL": "de_DE.UTF-8"}).stdout.startswith("Nanu [-x]\n")


GOOD = mo_file([(key.encode() + b"\4" + text.encode(), text.upper().encode()) for key, text in ENGLISH.items()])
DAMAGED = {
    "empty": b"",
    "no catalog": b"#!/bin/sh\nexit 1\n" * 50,
    "truncated in the header": GOOD[:20],
    "truncated in the tables": GOOD[:200],
    "truncated in the texts": GOOD[:len(GOOD) // 2],
    "foreign": mo_file([(b"File\4Open", "Öffnen".encode()), (b"Quit", b"Beenden")]),
    "keys of another program": mo_file([(b"MsgCvs0145N", b"%s %s %s %n"), (b"Unknown option [%s]\n", b"%n")]),
    "wrong conversions": mo_file([(key.encode() + b"\4" + text.encode(), b"%s%n%d%s%s%s\n") for key, text in ENGLISH.items()]),
    "no UTF-8": mo_file([(key.encode() + b"\4" + text.encode(), text.encode() + b"\xff\xfe%") for key, text in ENGLISH.items()]),
}


@pytest.mark.sanitized
@pytest.mark.parametrize("damage", DAMAGED)
def test_damaged_catalog_speaks_english_and_stops_nothing_less(host, damage):
    here = host(f"{BIN}/momuhe\n")
    here.write("/usr/quarn/corvane/locale/de/LC_MESSAGES/cvstop.mo", DAMAGED[damage])
    result = here.run("-k", env={"LC_ALL": "de_DE.UTF-8"})
    assert result.stdout == GATHERING + initiating(1) + f"Signaling process {BIN}/momuhe\n" + ALL_SPECIFIED
    assert (result.stderr, result.status) == ("", 1)
    assert not result.is_alive("momuhe")
