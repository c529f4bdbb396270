"""The files that belong to this source tree, whether git is there or only an unpacked archive."""
import os
import subprocess

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))


def all_files():
    """Paths relative to ROOT: what git tracks or would track; without git everything outside build/."""
    git = subprocess.run(["git", "-c", "safe.directory=*", "-C", ROOT, "ls-files", "-z", "--cached", "--others",
                          "--exclude-standard"], stdout=subprocess.PIPE, stderr=subprocess.DEVNULL)
    if git.returncode == 0:
        names = git.stdout.decode("utf-8", "surrogateescape").split("\0")
        return sorted(name for name in names if name and os.path.isfile(os.path.join(ROOT, name)))
    found = []
    for folder, folders, names in os.walk(ROOT):
        folders[:] = [one for one in folders if one not in (".git", "build", "__pycache__")]
        found += [os.path.relpath(os.path.join(folder, name), ROOT) for name in names]
    return sorted(found)


def sources(*endings):
    return [name for name in all_files() if name.endswith(endings)]
