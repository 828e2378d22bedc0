"""Which processes of a whole host are the product's: containers, services, ordinary users and other impostors."""
import pytest

from box import BIN, EXECUTABLES, listed, until_logged

SLEEP = "/usr/bin/sleep"
# Stands beside whatever a test looks for: a listing that misses everything is not taken for one that is right.
WITNESS = (f"{BIN}/momuhe", "Corvane")
HALVD = (f"{BIN}/halvd", "Corvane")


def start(command):
    """Starts a command in the background of the box and waits until it has become sleep(1); where it ends, so does the test."""
    return (f"{command} &\nfound=; until test -n \"$found\"; do kill -0 $! || exit 98; for pid in /proc/[0-9]*; do "
            "case \"$(tr '\\0' ' ' <$pid/cmdline 2>/dev/null)\" in *' 31337 ') "
            "case $(readlink $pid/exe) in *sh|*/busybox|*/unshare|*/setpriv|*/env|*/chroot) ;; *) found=1; break;; esac;; esac; "
            "done; done\n")


@pytest.fixture
def listing(host):
    """What is listed after some preparation in the box, where the witness runs."""
    def run(before, *options):
        return listed(host(f"{BIN}/momuhe\n").run("-l", *options, before=before))
    return run


def product_copy(name):
    return f"cp {SLEEP} {BIN}/{name}\n"


def test_daemon_is_listed(listing):
    assert listing(product_copy("halvd") + start(f"{BIN}/halvd 31337")) == [WITNESS, HALVD]


def test_container_with_its_own_copy_of_the_tree_is_not_the_hosts(listing):
    inside = ("mount -t tmpfs tmpfs /usr/quarn && mkdir -p /usr/quarn/corvane/bin && "
              f"cp {SLEEP} {BIN}/halvd && exec {BIN}/halvd 31337")
    result = listing(start(f"unshare --mount --pid --fork --mount-proc sh -c '{inside}'"))
    assert result == [WITNESS]


def test_container_with_the_hosts_tree_is_not_the_hosts(listing):
    result = listing(product_copy("halvd") + start(f"unshare --mount --pid --fork --mount-proc {BIN}/halvd 31337"))
    assert result == [WITNESS]


def test_hardened_service_in_a_private_mount_namespace_is_the_hosts(listing):
    result = listing(product_copy("halvd") + start(f"unshare --mount {BIN}/halvd 31337"))
    assert result == [WITNESS, HALVD]


def test_hardened_service_keeps_its_path_when_it_is_upgraded(listing):
    result = listing(product_copy("halvd") + start(f"unshare --mount {BIN}/halvd 31337")
                     + f"rm {BIN}/halvd\n" + product_copy("halvd"))
    assert result == [WITNESS, HALVD]


def test_private_mount_namespace_with_another_tree_is_not_the_hosts(listing):
    inside = ("mount -t tmpfs tmpfs /usr/quarn && mkdir -p /usr/quarn/corvane/bin && "
              f"cp {SLEEP} {BIN}/halvd && exec {BIN}/halvd 31337")
    assert listing(product_copy("halvd") + start(f"unshare --mount sh -c '{inside}'")) == [WITNESS]


def test_tree_faked_by_an_ordinary_user_in_his_own_namespaces_is_not_the_hosts(listing):
    inside = ("mount -t tmpfs tmpfs /usr/quarn && mkdir -p /usr/quarn/corvane/bin && "
              f"cp {SLEEP} {BIN}/halvd && exec {BIN}/halvd 31337")
    result = listing(start(
        f"setpriv --reuid 65534 --regid 65534 --clear-groups unshare --user --map-root-user --mount sh -c '{inside}'"))
    assert result == [WITNESS]


def test_real_daemon_run_in_a_user_namespace_of_an_ordinary_user_is_not_touched(listing):
    """What is read of such a process proves nothing: PR_SET_MM_MAP would show the very same."""
    result = listing(product_copy("halvd") + f"chmod 755 {BIN}/halvd\n" + start(
        f"setpriv --reuid 65534 --regid 65534 --clear-groups unshare --user --map-root-user {BIN}/halvd 31337"))
    assert result == [WITNESS]


def test_lazily_detached_mount_proves_no_path(listing):
    """The kernel gives a path in a detached mount from that mount's own root: whatever stands there."""
    detached = f"/tmp/m{BIN}"
    result = listing(f"mkdir -p /tmp/m && mount -t tmpfs tmpfs /tmp/m && mkdir -p {detached} && cp {SLEEP} {detached}/halvd\n"
                     + start(f"{detached}/halvd 31337") + "umount -l /tmp/m\n"
                     + f"{EXECUTABLES} | grep -qx '{BIN}/halvd' || exit 96\n")
    assert result == [WITNESS]


def test_mount_below_the_tree_that_was_detached_takes_its_path_along(listing):
    result = listing(f"mkdir -p /usr/quarn/extra && mount -t tmpfs tmpfs /usr/quarn/extra && cp {SLEEP} /usr/quarn/extra/halvd\n"
                     + start("/usr/quarn/extra/halvd 31337") + "umount -l /usr/quarn/extra\n")
    assert result == [WITNESS]


def test_chroot_into_the_tree_is_not_the_hosts_path(listing):
    # With what it loads, if anything.
    result = listing(f"for file in $(ldd {SLEEP} 2>/dev/null | grep -o '/[^ ]*'); do\n"
                     "mkdir -p /tmp/jail${file%/*}; cp -L $file /tmp/jail$file\n"
                     f"done; mkdir -p /tmp/jail{BIN}; cp {SLEEP} /tmp/jail{BIN}/halvd\n"
                     + start(f"chroot /tmp/jail {BIN}/halvd 31337"))
    assert result == [WITNESS]


@pytest.mark.parametrize("name", ["halvd;touch canary", "halvd$(touch canary)", "halvd`touch canary`", "a b", "x'y", 'x"y'])
def test_path_that_a_shell_would_run_is_listed_and_never_run(host, name):
    here = host()
    here.install(SLEEP, f"{BIN}/{name}")
    result = here.run("-k", "-3", before=start(f"find {BIN} -name 'halvd*' -o -name '* *' -o -name 'x?y' | "
                                               "{ read -r path; cd /tmp; exec \"$path\" 31337; }"),
                      after="test ! -e /canary -a ! -e /tmp/canary -a ! -e canary || echo FOUND >/usr/quarn/sandbox/canary")
    assert "Terminate request" not in "\n".join(result.texts())
    assert any("must not become part of a command line" in text for text in result.texts("find_processes_CV", "warning"))
    assert not (here.quarn / "sandbox/canary").exists()
    assert "3rd party processes active" in result.stdout


@pytest.mark.parametrize("own_tree, found", [(False, True), (True, False)])
def test_holder_in_a_private_mount_namespace_counts_only_with_the_hosts_files(listing, own_tree, found):
    """There a path proves nothing: what is held must be the host's very file, by device and inode."""
    mount = "mount -t tmpfs tmpfs /usr/quarn && mkdir -p /usr/quarn/corvane && " if own_tree else ""
    result = listing(start(f"unshare --mount sh -c '{mount}cd /usr/quarn/corvane && exec {SLEEP} 31337'"), "-3")
    assert result == [WITNESS] + found * [(SLEEP, "Third Party")]


WORKER = f"printf '#!/bin/sh\\n{SLEEP} 31337 & wait\\n' >{BIN}/worker; chmod 755 {BIN}/worker\n"
THE_WORKER = (f"{BIN}/worker", "Corvane")


def test_script_of_the_product_is_its_process(listing):
    assert listing(WORKER + start(f"{BIN}/worker")) == [WITNESS, THE_WORKER]


def test_script_in_a_container_with_the_hosts_tree_is_not_the_hosts(listing):
    assert listing(WORKER + start(f"unshare --mount --pid --fork --mount-proc {BIN}/worker")) == [WITNESS]


def test_script_of_another_tree_in_a_private_mount_namespace_is_not_the_hosts(listing):
    """The host has a script of that path, too, and the process's argument leads a look from outside to that one."""
    inside = ("cp /usr/quarn/corvane/bin/worker /tmp/worker && mount -t tmpfs tmpfs /usr/quarn && "
              f"mkdir -p {BIN} && cp /tmp/worker {BIN}/worker && exec {BIN}/worker")
    assert listing(WORKER + start(f"unshare --mount sh -c '{inside}'")) == [WITNESS]


def test_script_in_a_private_mount_namespace_with_the_hosts_tree_is_the_hosts(listing):
    assert listing(WORKER + start(f"unshare --mount {BIN}/worker")) == [WITNESS, THE_WORKER]


def test_script_that_calls_the_program_is_not_stopped_by_it(host):
    here = host(f"{BIN}/momuhe\n")
    script = here.write(f"{BIN}/upgrade", f"#!/bin/sh\n{BIN}/cvstop -k -q\necho survived\n")
    (here.quarn / "corvane/bin/upgrade").chmod(0o755)
    result = here.run(command=script)
    assert result.stdout == "survived\n"
    assert not result.is_alive("momuhe")


def test_ordinary_user_cannot_make_his_shell_the_products_script(listing):
    assert listing(WORKER + start(f"setpriv --reuid 65534 --regid 65534 --clear-groups {BIN}/worker")) == [WITNESS]


def test_zombies_are_no_records(listing):
    inside = f"{BIN}/halvd 0 & exec {SLEEP} 31337"
    result = listing(product_copy("halvd") + start(f"sh -c '{inside}'")
                     + "until grep -l '(halvd) Z' /proc/[0-9]*/stat >/dev/null 2>&1; do sleep 0.01; done\n")
    assert result == [WITNESS]


def test_second_run_of_the_program_is_no_process_of_the_product(host):
    here = host(f"{BIN}/momuhe ignore=all\n")
    result = here.run("-l", before=f"{BIN}/cvstop -k -q &\n" + until_logged("Waiting for"), after="wait\n")
    assert listed(result) == [WITNESS]
