"""Edits of bookmarks, and what has to come of them however the computers meet.

An entry's title is what it is known by for ever, and after a dot the number of its last renaming. No attribute has one value
twice, so that each value tells which edits it knows of. What must hold is kept while the edits are made, by what their author
saw: the end is judged by it, and never read for it.
"""

import collections

from homes import folder, leaf

ATTRIBUTES = ("title", "address", "folder")
BAR = "BookmarksBar"
ANCHOR = "n0"  # never deleted: keeps the guard against emptied files out of these histories
ORDERED = "ordered"  # its children are reordered by one computer, and nothing else
MOST_BELOW = 4  # of what is deleted at once
FEWEST = 12  # below this nothing is deleted


class Undone(Exception):
    """An edit was lost, doubled or undone."""


def title_of(entry):
    return entry["Title"] if "Title" in entry else entry["URIDictionary"]["title"]


def identity_of(entry):
    return title_of(entry).partition(".")[0]


def is_folder(entry):
    return "Title" in entry


Found = collections.namedtuple("Found", "entry siblings folder")


def entries_of(root):
    """All but the special ones, with the list that each is in and its folder's identity."""
    found = []

    def collect(siblings, inside):
        for entry in siblings:
            if entry.get("Title") == BAR:
                collect(entry.setdefault("Children", []), BAR)
                continue
            found.append(Found(entry, siblings, inside))
            if is_folder(entry) and title_of(entry) != ORDERED:
                collect(entry.setdefault("Children", []), identity_of(entry))

    collect(root.setdefault("Children", []), "")
    return [each for each in found if title_of(each.entry) != ORDERED]


def values_of(found):
    return {"title": title_of(found.entry), "address": found.entry.get("URLString", ""), "folder": found.folder}


def order_of(root):
    for entry in root["Children"]:
        if entry.get("Title") == ORDERED:
            return [title_of(each) for each in entry["Children"]]
    return None


class EntryHistory:
    """What became of one entry."""

    def __init__(self, values):
        self.replaced = {attribute: {values[attribute]: False} for attribute in ATTRIBUTES}
        self.entered = set()
        self.deletions = []
        self.was_deleted = False
        self.may_come_back = False
        self.deleted_with = set()  # what a deleted folder held; what of it lives brings the folder back

    def knows(self, attribute, value):
        return value in self.replaced[attribute]

    def edit(self, attribute, before, after):
        self.replaced[attribute][before] = True
        self.replaced[attribute].setdefault(after, False)

    def last(self, attribute):
        """The values that nobody who saw them has replaced: several where edits knew nothing of one another."""
        return [value for value, replaced in self.replaced[attribute].items() if not replaced]

    def delete(self, values, seen_in_it):
        self.deletions.append((values, set(seen_in_it)))
        self.was_deleted = True

    def must_be_gone(self):
        """Whether somebody deleted it who knew of every edit, and of everything that was put into it."""
        return any(all(self.last(attribute) == [values[attribute]] for attribute in ATTRIBUTES) and self.entered <= seen
                   for values, seen in self.deletions)

    def complaint(self, values):
        for attribute in ATTRIBUTES:
            # With a deletion, the edits of who deleted may have gone.
            if self.was_deleted and self.knows(attribute, values[attribute]):
                continue
            if values[attribute] not in self.last(attribute):
                return f'"{values[attribute]}" instead of {self.last(attribute)}'
        return ""


class Histories:
    """The edits of one account's computers."""

    def __init__(self, draw):
        self.draw = draw
        self.entries = {}
        self.seen = collections.defaultdict(lambda: collections.defaultdict(set))  # by computer and folder
        self.held = {}  # by computer, at the end of its last session or edit
        self.unconfirmed = {}  # by computer, what a killed session has added
        self.serial = 0
        self.versions = 0
        self.orders = [[f"o{i}" for i in range(6)]]

    def first_children(self):
        """What the first computer's file holds at the beginning."""
        bar = folder(BAR, [])
        children = [bar, folder(ORDERED, [leaf(title) for title in self.orders[0]])]
        root = {"Children": children}
        folders = [self._add(root, children, "", True) for _ in range(3)]
        for inside in ("", *map(identity_of, folders), *map(identity_of, folders)):
            siblings = children if not inside else next(each for each in folders if identity_of(each) == inside)["Children"]
            self._add(root, siblings, inside, False)
        for _ in range(8):
            self._add(root, bar["Children"], BAR, False)
        return children

    def look(self, who, root):
        """A user looks at the bookmarks of a computer."""
        for each in entries_of(root):
            self.seen[who][each.folder].add(identity_of(each.entry))

    def forget(self, who):
        self.seen.pop(who, None)

    def session_ended(self, who, root, killed):
        """What a killed session had added comes back when its user deletes all of that before the next session: it cannot
        be told from what that session did not get to save."""
        now = {identity_of(each.entry) for each in entries_of(root)}
        self.unconfirmed[who] = self.unconfirmed.get(who, set()) | now - self.held.get(who, now) if killed else set()
        self.held[who] = now

    def edit(self, who, root):
        """One random edit of a computer's bookmarks, made by somebody who looks at them; what it was."""
        self.look(who, root)
        kinds = {self.add_bookmark: 4, self.add_folder: 1, self.rename: 4, self.readdress: 3, self.move: 4, self.delete: 3,
                 self.shuffle: 2}
        kind = self.draw.choices(list(kinds), kinds.values())[0] if entries_of(root) else self.add_bookmark
        done = kind(who, root)
        self.held[who] = {identity_of(each.entry) for each in entries_of(root)}
        return done

    def reorder(self, root):
        """For the one computer that may."""
        entry = next((each for each in root["Children"] if each.get("Title") == ORDERED), None)
        children = entry["Children"]
        moved = children.pop(self.draw.randrange(len(children)))
        children.insert(self.draw.randint(0, len(children)), moved)
        order = order_of(root)
        if order not in self.orders:
            self.orders.append(order)
            return f"reorder {order}"
        was = self.orders[-1]
        children.sort(key=lambda each: was.index(title_of(each)))
        return "reorder nothing"

    def add_bookmark(self, who, root):
        siblings, inside = self._any_folder(root)
        return "add " + title_of(self._add(root, siblings, inside, False))

    def add_folder(self, who, root):
        siblings, inside = self._any_folder(root)
        return "add folder " + title_of(self._add(root, siblings, inside, True))

    def rename(self, who, root):
        return self._change(root, lambda found: self._retitle(found.entry))

    def readdress(self, who, root):
        def change(found):
            if not is_folder(found.entry):
                address = f"https://v{self._version()}.example.com/"
                found.entry["URLString"] = found.entry["URIDictionary"][""] = address

        return self._change(root, change)

    def move(self, who, root):
        """A bookmark, into a folder in which it never was: that it came back there would tell nothing."""
        siblings, inside = self._any_folder(root)

        def change(found):
            identity = identity_of(found.entry)
            if is_folder(found.entry) or identity == ANCHOR or self.entries[identity].knows("folder", inside):
                return
            found.siblings.remove(found.entry)
            siblings.insert(self.draw.randint(0, len(siblings)), found.entry)
            self._fill(inside, identity)

        return self._change(root, change)

    def shuffle(self, who, root):
        """An entry gets another place in its folder. Several may do that at once, so nothing is asked of the order but that
        all computers end with the same."""
        found = self._any_entry(root)
        found.siblings.remove(found.entry)
        found.siblings.insert(self.draw.randint(0, len(found.siblings)), found.entry)
        return "shuffle " + title_of(found.entry)

    def delete(self, who, root):
        found = self._any_entry(root)
        below = [found] + [each for each in entries_of({"Children": found.entry.get("Children", [])})]
        identities = [identity_of(each.entry) for each in below]
        if ANCHOR in identities or len(below) > MOST_BELOW or len(entries_of(root)) - len(below) < FEWEST:
            return "delete nothing"
        inside = identity_of(found.entry)
        for each in below:
            values = values_of(each)
            if each is not found and not each.folder:
                values["folder"] = inside
            identity = identity_of(each.entry)
            self.entries[identity].delete(values, self.seen[who][identity])
            self.entries[identity].deleted_with.update(identities)
        found.siblings.remove(found.entry)
        unconfirmed = self.unconfirmed.get(who, set())
        if not unconfirmed & {identity_of(each.entry) for each in entries_of(root)}:
            for identity in unconfirmed:
                self.entries[identity].may_come_back = True
        return f"delete {identities}"

    def require_kept(self, root):
        """Every edit is there that no other one contends with, made without knowing of it; what was deleted by somebody who
        knew all edits of it is gone; nothing else is, and nothing is there twice."""
        ends, filled = {}, set()
        for found in entries_of(root):
            identity = identity_of(found.entry)
            if identity in ends:
                raise Undone(f"{identity} is there twice")
            if identity not in self.entries:
                raise Undone(f"nobody made {identity}")
            ends[identity] = values_of(found)
            filled.add(found.folder)
        for identity, history in self.entries.items():
            if identity not in ends:
                if not history.was_deleted:
                    raise Undone(f"{identity} vanished though nobody deleted it")
                continue
            may_stay = (history.may_come_back or identity in filled or self._came_back(ends, identity)
                        or any(each in ends for each in history.deleted_with - {identity}))
            if history.must_be_gone() and not may_stay:
                raise Undone(f"{identity} was deleted and came back")
            complaint = history.complaint(ends[identity])
            if complaint:
                raise Undone(f"{identity} has {complaint}")
        if order_of(root) != self.orders[-1]:
            raise Undone(f"the order is {order_of(root)} instead of {self.orders[-1]}, which replaced {self.orders[-4:-1]}")

    def settle(self, root):
        """All computers show the same: where edits contended, everybody sees from now on what came of it."""
        living = {identity_of(found.entry): found for found in entries_of(root)}
        for identity, history in self.entries.items():
            history.deletions.clear()
            history.deleted_with.clear()
            history.was_deleted = False
            history.may_come_back = False
            values = values_of(living[identity]) if identity in living else {}
            for attribute in ATTRIBUTES:
                last = values.get(attribute, history.last(attribute)[0])
                for value in history.replaced[attribute]:
                    history.replaced[attribute][value] = value != last
            if identity not in living:
                history.delete({attribute: history.last(attribute)[0] for attribute in ATTRIBUTES}, history.entered)

    def _came_back(self, ends, identity):
        """A folder that lives because somebody changed it, though somebody else deleted it, comes back with what it held."""
        while (identity := ends[identity]["folder"]) not in ("", BAR):
            if self.entries[identity].was_deleted:
                return True
        return False

    def _version(self):
        self.versions += 1
        return self.versions

    def _retitle(self, entry):
        title = f"{identity_of(entry)}.{self._version()}"
        if is_folder(entry):
            entry["Title"] = title
        else:
            entry["URIDictionary"]["title"] = title

    def _any_folder(self, root):
        """The list of children and the identity of some folder."""
        folders = [(root["Children"], "")]
        folders += [(each["Children"], BAR) for each in root["Children"] if each.get("Title") == BAR]
        folders += [(each.entry["Children"], identity_of(each.entry)) for each in entries_of(root) if is_folder(each.entry)]
        return self.draw.choice(folders)

    def _any_entry(self, root):
        return self.draw.choice(entries_of(root))

    def _add(self, root, siblings, inside, as_folder):
        title = f"n{self.serial}"
        self.serial += 1
        entry = folder(title, []) if as_folder else leaf(title)
        siblings.insert(self.draw.randint(0, len(siblings)), entry)
        self.entries[title] = EntryHistory({"title": title, "address": entry.get("URLString", ""), "folder": inside})
        self._fill(inside, title)
        return entry

    def _fill(self, inside, identity):
        if inside in self.entries:
            self.entries[inside].entered.add(identity)

    def _change(self, root, change):
        found = self._any_entry(root)
        before = values_of(found)
        change(found)
        after = values_of(next(each for each in entries_of(root) if each.entry is found.entry))
        history = self.entries[identity_of(found.entry)]
        for attribute in ATTRIBUTES:
            if before[attribute] != after[attribute]:
                history.edit(attribute, before[attribute], after[attribute])
        return f"change {before} to {after}"
