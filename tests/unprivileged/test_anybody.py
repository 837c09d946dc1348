# SPDX-License-Identifier: MIT
"""./run.sh for whoever starts it, wherever: a plain user, a chroot, a container; or one line about what is missing."""
import os
import shutil
import subprocess
import tempfile
from pathlib import Path

import pytest

from lab.namespaces import ALL_USERS, users_here

ROOT = Path(__file__).resolve().parent.parent.parent
NOBODY = 65534
LIMIT_S = 300    # only ends a wait for something that does not come
IS_ROOT = os.geteuid() == 0 and users_here() == ALL_USERS
# As a container's root, who has most rights, but not those of an administrator.
WITHOUT_RIGHTS = ["setpriv", "--bounding-set=-sys_admin,-net_admin"]
# A machine of one's own, as far as mounts go.
OWN_MOUNTS = ["unshare", "--mount", "sh", "-euc"]
OWN_USERS = ["unshare", "--user", "--map-root-user"]

needs_root = pytest.mark.skipif(not IS_ROOT, reason="only root makes chroots and containers")


def as_plain_user():
    """What starts a command as one."""
    if IS_ROOT:
        return ["setpriv", f"--reuid={NOBODY}", f"--regid={NOBODY}", "--clear-groups"]
    # The root of a plain user's namespace is that user again in one below it.
    return ["unshare", "--user", "--map-user=1000", "--map-group=1000"] if os.geteuid() == 0 else []


AS_PLAIN_USER = as_plain_user()


def run(*command, cwd="/", **more):
    return subprocess.run(command, cwd=cwd, stdin=subprocess.DEVNULL, capture_output=True, text=True, timeout=LIMIT_S, check=False,
                          **more)


@pytest.fixture(name="tree", scope="module")
def fixture_tree(request):
    """A copy of what ./run.sh needs of the tree, and of the programs, that everybody may read and a plain user may write."""
    with tempfile.TemporaryDirectory(prefix="anybody-") as folder:
        copy = Path(folder) / "tree"
        for name in ("lab", "router", ".ci"):
            shutil.copytree(ROOT / name, copy / name)
        shutil.copy(ROOT / "run.sh", copy)
        (copy / "programs").mkdir()
        for path in (Path(request.config.getoption("--build")) / "bin").iterdir():
            if not path.name.endswith("_test") and path.is_file():
                shutil.copy(path, copy / "programs")
        os.chmod(folder, 0o755)
        if IS_ROOT:
            for path in [copy, *copy.rglob("*")]:
                os.chown(path, NOBODY, NOBODY)
        yield copy


def require_user_namespaces():
    trial = run(*AS_PLAIN_USER, *OWN_USERS, "true")
    if trial.returncode != 0:
        pytest.skip(f"no user namespaces here: {trial.stderr.strip()}")


def assert_played(done):
    assert done.returncode == 0, done.stdout + done.stderr
    assert "PASSED: the line in eth2 was found and has the WAN role" in done.stdout


def assert_one_line(done, status, *parts):
    """It ended with that status, and all it said is one line with these parts."""
    assert done.returncode == status, done.stdout + done.stderr
    assert done.stdout == ""
    assert done.stderr.count("\n") == 1, done.stderr
    for part in ("run.sh: ", *parts):
        assert part in done.stderr


# --- where it plays ---------------------------------------------------------------------------------------------------

def test_a_plain_user_plays_the_main_scenario(tree):
    require_user_namespaces()
    assert_played(run(*AS_PLAIN_USER, "./run.sh", "--build", "programs", cwd=tree))


@needs_root
def test_a_containers_root_without_an_administrators_rights_plays_it(tree):
    require_user_namespaces()
    assert_played(run(*WITHOUT_RIGHTS, "./run.sh", "--build", "programs", cwd=tree))


@needs_root
def test_a_plain_user_plays_where_things_are_mounted_below_the_folders_he_writes_to(tree):
    require_user_namespaces()
    script = 'mount --bind /etc/hostname /etc/hosts; exec "$@"'
    assert_played(run(*OWN_MOUNTS, script, "sh", *AS_PLAIN_USER, "./run.sh", "--build", "programs", cwd=tree))


CHROOT = """
mount --make-rshared / # as systemd does
for folder in usr etc dev var; do mkdir -p "$1/$folder"; mount --rbind "/$folder" "$1/$folder"; done
for folder in bin sbin lib lib64; do ln -s "usr/$folder" "$1/$folder"; done
mkdir "$1/proc" "$1/sys" "$1/run" "$1/tree" && mkdir -m 1777 "$1/tmp"
mount --bind "$2" "$1/tree"
[ "$3" = without ] || mount -t proc proc "$1/proc"
umount "$1/dev/pts" "$1/dev/shm" || true
findmnt -rno TARGET >"$1.before"
"""


@pytest.fixture(name="chroot")
def fixture_chroot(tree):
    """Runs a command in a folder with the machine's own programs, which is no mount point."""
    with tempfile.TemporaryDirectory(prefix="anybody-chroot-") as folder:
        os.chmod(folder, 0o755)

        def in_chroot(proc, *command):
            script = CHROOT + 'root=$1; shift 3; chroot "$root" "$@" && findmnt -rno TARGET | cmp - "$root.before" >&2'
            return run(*OWN_MOUNTS, script, "sh", f"{folder}/root", tree, f"{proc}", *command)

        yield in_chroot


@needs_root
@pytest.mark.parametrize("proc", ["with", "without"])
def test_it_plays_in_a_plain_chroot_and_mounts_nothing_outside(chroot, proc):
    assert_played(chroot(proc, "/tree/run.sh", "--build", "/tree/programs"))


# --- where it cannot, and says so -------------------------------------------------------------------------------------

@needs_root
def test_a_plain_user_in_a_chroot_is_told(chroot):
    assert_one_line(chroot("with", *AS_PLAIN_USER, "/tree/run.sh", "--check"), 77, "needs root", "in a chroot")


def test_where_user_namespaces_are_forbidden_a_plain_user_is_told(tree):
    require_user_namespaces()
    # In a namespace of its own that setting forbids them to this test alone.
    forbid = 'echo 0 >/proc/sys/user/max_user_namespaces; exec setpriv --bounding-set=-all --inh-caps=-all "$@"'
    done = run(*AS_PLAIN_USER, *OWN_USERS, "sh", "-euc", forbid, "sh", "./run.sh", "--check", cwd=tree)
    assert_one_line(done, 77, "needs root", "sysctl user.max_user_namespaces=")


@needs_root
def test_where_parts_of_proc_are_hidden_it_is_told(tree):
    require_user_namespaces()
    done = run(*OWN_MOUNTS, 'mount --bind /dev/null /proc/version; exec "$@"', "sh", *AS_PLAIN_USER, "./run.sh", "--check", cwd=tree)
    assert_one_line(done, 77, "/proc are hidden", "container")


def test_a_scenario_with_strangers_tells_what_it_needs(tree):
    require_user_namespaces()
    done = run(*AS_PLAIN_USER, *OWN_USERS, "./run.sh", "strangers", "--build", "programs", cwd=tree)
    assert_one_line(done, 77, "uidmap")


def test_missing_packages_are_named_in_the_line_that_installs_them(tree):
    with tempfile.TemporaryDirectory(prefix="anybody-path-") as folder:
        os.chmod(folder, 0o755)
        asked = Path(folder) / "dpkg-query"
        asked.write_text('#!/bin/sh\ncase $* in *pppoe | *udhcpc) exit 1 ;; esac\necho install ok installed\n', encoding="ascii")
        asked.chmod(0o755)
        done = run(*AS_PLAIN_USER, "./run.sh", cwd=tree, env=dict(os.environ, PATH=f"{folder}:{os.environ['PATH']}"))
    assert_one_line(done, 1, "as root: apt-get install --no-install-recommends pppoe udhcpc\n")


def test_a_folder_that_cannot_be_written_is_named(tree):
    (tree / "build").touch()    # in the way, whoever asks
    done = run(*AS_PLAIN_USER, "./run.sh", cwd=tree)
    (tree / "build").unlink()
    assert_one_line(done, 1, f"cannot write to {tree}/build/run", "copy the tree")


@needs_root
def test_a_folder_of_root_is_not_for_a_plain_user(tree):
    os.chown(tree, 0, 0)
    done = run(*AS_PLAIN_USER, "./run.sh", cwd=tree)
    os.chown(tree, NOBODY, NOBODY)
    assert_one_line(done, 1, f"cannot write to {tree}/build/run")
