"""The parser of the listing: what the program prints is what it gives back, in every language, and it never guesses."""
import os
import random
import shutil
import uuid

import pytest
from ansible_collections.quarn.corvane.plugins.module_utils import listing
from box import BUILD, Host
from program import printed
from test_languages import LANGUAGES, Speaker

B = b"/usr/quarn/corvane/bin"
LISTING = b"""\
Name     Path                          Pid Category   \n\
-------- ----------------------------- --- -----------\n\
halvd    /usr/quarn/corvane/bin/halvd  5   Corvane    \n\
d\xc3\xa4\xc3\xa9mon /usr/quarn/corvane/bin/d\xc3\xa4\xc3\xa9mon 11  Corvane    \n\
repo ter /opt/my reports/repo ter      13  Third Party\n\
"""


def test_a_listing_is_read_by_its_dashes():
    assert listing.parse(LISTING) == [
        (b"halvd", B + b"/halvd", 5, listing.PRODUCT),
        ("däémon".encode(), B + "/däémon".encode(), 11, listing.PRODUCT),
        (b"repo ter", b"/opt/my reports/repo ter", 13, listing.THIRD_PARTY)]


def test_nothing_printed_is_nothing_that_runs():
    assert listing.parse(b"") == []
    assert listing.parse(b"Unable to create log file.  status=2.  Continuing without logging.\n") == []


def test_a_warning_before_the_listing_is_no_row():
    warning = b"Unable to create log file.  status=2.  Continuing without logging.\n"
    assert listing.parse(warning + LISTING) == listing.parse(LISTING)


def test_a_process_that_is_called_like_the_warning_is_not_overlooked():
    name = b"Unable to create log file."
    row = (name, B + b"/" + name, b"7", b"Corvane")
    assert listing.parse(printed([row])) == [(name, B + b"/" + name, 7, listing.PRODUCT)]


@pytest.mark.parametrize("text, reason", [
    (b"koka 812\n", "no row of dashes"),
    (b"Currently only supported on clients.\n", "no row of dashes"),
    (b"Name Path\n---- ----\nkoka /usr/quarn/koka\n", "no row of dashes"),
    (LISTING + b"and more\n", "no pid"),
    (LISTING.replace(b" 5   ", b" 5x  "), "no pid"),
    (LISTING.replace(b"/usr/quarn/corvane/bin/halvd ", b"usr-quarn-corvane-bin-halvd--"), "does not fit"),
    (LISTING.replace(b"halvd    /", b"halvd  /"), "does not fit"),
    (LISTING.replace(b"Corvane    \n", b"Koralle    \n"), "neither Corvane nor Third Party"),
    (LISTING[:-20], "no pid"),
])
def test_what_cannot_be_read_is_refused(text, reason):
    with pytest.raises(listing.ListingError, match=reason):
        listing.parse(text)


# What a name may be made of: blanks, digits that look like a pid, words of the category column, dashes, letters of two to
# four bytes, bytes that are no UTF-8, markup.
PIECES = [b"a", b"koka", b" ", b"  ", b"-", b"---- ", b"12 ", b" 7 Corvane", b"Third Party", "ä".encode(), "名".encode(),
          "𝄞".encode(), b"\xff", b"\xc3", b"?", b"<b>", b"'", b"%s", b"\\",
          b"Unable to create log file."]


def random_name(chance):
    name = b"".join(chance.choice(PIECES) for _ in range(chance.randint(1, 6))).strip(b" ")
    return name or b"x"


def random_row(chance):
    folders = b"".join(b"/" + random_name(chance) + chance.choice([b"", b" "]) for _ in range(chance.randint(1, 4)))
    name = random_name(chance)
    return name, folders + b"/" + name, str(chance.randint(1, 4194304)).encode()


def test_what_is_printed_for_random_fleets_is_read_back(seed):
    chance = random.Random(seed)
    for _ in range(1500):
        rows = [(*random_row(chance), chance.choice(list(listing.CATEGORIES))) for _ in range(chance.randint(1, 12))]
        read = listing.parse(printed(rows))
        assert read == [(name, path, int(pid), listing.CATEGORIES[word]) for name, path, pid, word in rows], f"seed {seed}"


def test_words_of_any_letters_are_cut_off(seed):
    chance = random.Random(seed)
    for _ in range(500):
        words = ["サードパーティ".encode(), "tiers ä".encode(), b"Corvane", "第三方".encode()]
        labels = ["名前".encode(), "パス".encode(), b"PID", "カテゴリ".encode()]
        rows = [(*random_row(chance), chance.choice(words)) for _ in range(chance.randint(1, 12))]
        read = listing.parse_rows(printed(rows, labels, words))
        assert read == [(name, path, int(pid), word) for name, path, pid, word in rows], f"seed {seed}"


def test_any_bytes_are_a_listing_or_refused(seed):
    chance = random.Random(seed)
    for _ in range(3000):
        text = bytearray(LISTING)
        for _ in range(chance.randint(1, 8)):
            place = chance.randrange(len(text))
            patch = bytes(chance.choice(b" -/\n0a\xc3\xff") for _ in range(chance.randint(0, 3)))
            text[place:place + chance.randint(0, 3)] = patch
        try:
            processes = listing.parse(bytes(text))
        except listing.ListingError:
            continue
        assert all(process.path.startswith(b"/") and process.pid >= 0 for process in processes), f"seed {seed}"


# What may stand in the path of a daemon, and, but for blanks and the fleet file's comments, in anybody's.
DAEMON_PIECES = ["a", "Z", "0", ".", "_", "-", "+", "@", ":", ",", "%", "ä", "名", "𝄞"]
ANY_PIECES = [*DAEMON_PIECES, "<b>", "&", "'", '"', "\\", "$(x)", "*", "?", "=", "Corvane", "Third", "12"]
SEED = int(os.environ.get("CVSTOP_TEST_SEED", random.randrange(1 << 30)))


def random_names(count, pieces):
    """So many different names; the number before each keeps them apart."""
    chance = random.Random(SEED)
    return [f"{number}" + "".join(chance.choice(pieces) for _ in range(chance.randint(1, 12))) for number in range(count)]


NAMES = ["halvd", "x" * 200, *random_names(20, DAEMON_PIECES)]
STRANGERS = [f"/opt/{folder}s/{folder}" for folder in random_names(20, ANY_PIECES)]


@pytest.fixture(scope="module")
def listings(boxes):
    """The program's own listing in each language, of daemons whose names are as odd as a fleet file lets them be."""
    folder = BUILD / "sandbox-trees" / f"listing-{uuid.uuid4().hex[:8]}"
    fleet = "".join(f"{B.decode()}/{name}\n" for name in NAMES)
    fleet += "".join(f"{path} map=/usr/quarn/corvane/lib/libsampled.so\n" for path in STRANGERS)
    host = Host(folder, fleet)
    (host.quarn / "sandbox/out").mkdir()
    script = "/opt/starter/start --start /usr/quarn/sandbox/fleet || exit 99\n" + "".join(
        f"LC_ALL={locale} {B.decode()}/cvstop -l -3 >/tmp/{name} </dev/null || exit 98; "
        f"cp /tmp/{name} /usr/quarn/sandbox/out\n" for name, locale in {"C": "C", **LANGUAGES}.items())
    box = host.shell(script)
    assert box.returncode == 0, box.stderr.decode()
    result = {path.name: path.read_bytes() for path in (host.quarn / "sandbox/out").iterdir()}
    pids = [line.split("\t") for line in host.file("journal").splitlines()]
    yield result, {words[3]: int(words[2]) for words in pids if words[1] == "ready"}
    shutil.rmtree(folder)


@pytest.mark.parametrize("language", ["C", *LANGUAGES])
def test_the_programs_own_listings(listings, language):
    texts, pids = listings
    word = Speaker(language)("MsgCvs0222N") if language != "C" else "Third Party"
    expected = sorted([(name, f"{B.decode()}/{name}", pids[name], "Corvane") for name in NAMES]
                      + [(path.rsplit("/", 1)[1], path, pids[path.rsplit("/", 1)[1]], word) for path in STRANGERS],
                      key=lambda row: row[2])
    read = listing.parse_rows(texts[language])
    assert [(name.decode(), path.decode(), pid, word.decode()) for name, path, pid, word in read] == expected, f"seed {SEED}"


@pytest.mark.parametrize("language", LANGUAGES)
def test_another_language_is_refused_where_it_matters(listings, language):
    with pytest.raises(listing.ListingError, match="is the listing in English"):
        listing.parse(listings[0][language])
