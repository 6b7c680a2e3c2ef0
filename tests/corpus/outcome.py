"""What a repair did to the files: two states of a container's tree, compared in as few lines as tell it all."""
import collections

File = collections.namedtuple("File", "contents attributes")  # contents: None for a directory


def describe(before, after, block_size):
    """Lines. Both trees: paths from "/" on to File."""
    same = {path for path in before if path in after and before[path].contents == after[path].contents}
    gone = sorted(before.keys() - same)
    come = sorted(after.keys() - same)
    lines = []
    while gone:
        old = gone.pop(0)
        new = next((path for path in come if _below(after, path) == _below(before, old)), None)
        whole = new is not None
        if whole:
            marks = _marks(before[old], after[new])
            lines.append(f"moved    {old}{_kind(before[old])} -> {new}{_kind(after[new])}{_count(before, old)}{marks}")
            come = [path for path in come if path != new and not path.startswith(new + "/")]
        elif old in come and before[old].contents is not None and after[old].contents is not None:
            lines.append(f"changed  {old}: {_changes(before[old], after[old], block_size)}")
            come.remove(old)
        else:
            whole = _is_lost(before, after, gone, come, old)
            lines.append(f"lost     {old}{_size(before[old])}{_count(before, old) if whole else ''}")
        if whole:
            gone = [path for path in gone if not path.startswith(old + "/")]
    lines += [f"new      {path}{_size(after[path])}" for path in come]
    marked = [path for path in sorted(same) if _marks(before[path], after[path])]
    lines += [f"marked   {path}{_marks(before[path], after[path])}" for path in marked]
    left = len(same) - len(marked)
    return lines + [f"{'all' if left == len(before) else 'the other'} {left} files and directories are as they were"]


def _below(tree, path):
    """What a path stands for: the contents of a file; of a directory all below it. Attributes do not matter."""
    if tree[path].contents is not None:
        return tree[path].contents
    below = {name[len(path):]: file.contents for name, file in tree.items() if name.startswith(path + "/")}
    return tuple(sorted(below.items()))


def _is_lost(before, after, gone, come, path):
    """Nothing of what was below the path has turned up anywhere."""
    below = [name for name in before if name.startswith(path + "/")]
    there = [_below(after, name) for name in come]
    return all(name in gone and _below(before, name) not in there for name in below)


def _kind(file):
    return "/" if file.contents is None else ""


def _size(file):
    return "/" if file.contents is None else f" ({len(file.contents)} bytes)"


def _count(tree, path):
    count = sum(name.startswith(path + "/") for name in tree)
    return f" with the {count} below it" if count else ""


def _marks(before, after):
    return "" if before.attributes == after.attributes else f", {before.attributes} -> {after.attributes}"


def _changes(before, after, unit):
    """Of a file's contents, by its blocks; then of its attributes."""
    old, new = before.contents, after.contents
    common = min(len(old), len(new))
    size = f"{len(old)} -> {len(new)} bytes" if len(old) != len(new) else f"{len(old)} bytes as before"
    other = [at // unit for at in range(0, common, unit)
             if old[at:min(at + unit, common)] != new[at:min(at + unit, common)]]
    if not other:
        first = f", the first {common} as they were" if common else ""
        return size + first + _marks(before, after)
    zeros = all(not any(new[block * unit:min((block + 1) * unit, common)]) for block in other)
    blocks = ", ".join(map(str, other)) if len(other) < 8 else f"{other[0]} to {other[-1]}, {len(other)} in all"
    return f"{size}, {'zeros' if zeros else 'other contents'} in block {blocks}{_marks(before, after)}"
