"""What corvane-scenario printed, as text.

What is left unsaid is settled all the same, so that no two outcomes read alike. A key that is not mentioned has the
value of SILENT or is absent. Bookmarks are "unchanged" where they equal what the last save found: the browser's last
write before it, or what was given. And the working map is as the file's entries have it, except for the order and the
attributes that are written out.
"""

from scenario_text.records import in_usual_order, record_words
from scenario_text.trees import LIST, indented, is_known, tree_lines
from scenario_text.values import ABSENT, attributes, escaped, name_text, same, value_text

SILENT = {"Created": True, "Backups": [], "ClientValues": {}, "Results": [], "SystemLog": [], "DiagnosticLog": []}
SUMMARY = ("Created", "Synced", "SaveAttempts", "Backups", "Notifications", "FeedAgentWoken")
DICTIONARIES = ("Exception", "ClientValues")
LOGS = ("SystemLog", "DiagnosticLog")
SECTIONS = ("Results", "Bookmarks", "WorkingMap", *DICTIONARIES, *LOGS)
ANSWERS = {
    "applyChange": {0: "refused", 1: "accepted", 2: "ignored", 3: "error"},
    "preferredSyncMode": {1: "fast", 2: "slow", 3: "refresh"},
}
SPECIAL_TITLES = ("BookmarksBar", "BookmarksMenu")
SPECIAL_POSITION = -2


def sorted_by_key(value):
    """A copy whose dictionaries are in the order of their keys."""
    if isinstance(value, dict):
        return {key: sorted_by_key(value[key]) for key in sorted(value)}
    return list(map(sorted_by_key, value)) if isinstance(value, list) else value


def answer_lines(call, results):
    """What a call answered: the words behind it, and a line for every record; `results` is empty if it was not made."""
    if not results:
        return ["-> not made"]
    rest = sorted_by_key(results[0])
    call_made, answer = rest.pop("Call", ABSENT), rest.pop("Answer", ABSENT)
    if call_made != call:
        rest["Call"] = call_made
    if isinstance(answer, dict) and answer:
        records = [" ".join([name_text(uid), *record_words(in_usual_order(answer[uid]))]) for uid in answer]
        return [" ".join(["->", *attributes(rest)]), *indented(records)]
    word = ANSWERS.get(call, {}).get(answer) if type(answer) is int else None
    return [" ".join(["->", word or value_text(answer), *attributes(rest)])]


def bookmarks_before(scenario, save_attempts):
    writes = scenario.get("BrowserWrites", [])[:save_attempts]
    return (writes[-1] if writes else scenario).get("Bookmarks", ABSENT)


def bookmarks_lines(scenario, result):
    if "Bookmarks" not in result:
        return []
    if same(result["Bookmarks"], bookmarks_before(scenario, result["SaveAttempts"])):
        return ["Bookmarks unchanged"]
    return tree_lines(["Bookmarks"], sorted_by_key(result["Bookmarks"]))


def entry_in_map(entry, parent_id, parent, position, special):
    """What the working map has of an entry of the file, but for a folder's children."""
    is_list = entry["WebBookmarkType"] == LIST
    found = {
        "Class": "Folder" if is_list else "Bookmark",
        "Title": title_of(entry),
        "ParentId": parent_id,
        "Position": SPECIAL_POSITION if special else position,
        "Special": special,
        "Ignored": parent["Ignored"] or entry.get("ShouldOmitFromUI") is True,
    }
    found |= {"AutoTab": entry.get("WebBookmarkAutoTab") is True} if is_list else {"URL": entry.get("URLString")}
    return {key: value for key, value in found.items() if value is not None}


def title_of(entry):
    if entry["WebBookmarkType"] == LIST:
        return entry.get("Title")
    uri = entry.get("URIDictionary")
    return uri.get("title") if isinstance(uri, dict) else None


def add_children(found, parent_id, parent, entry):
    children = entry.get("Children")
    known = [child for child in children if is_known(child)] if isinstance(children, list) else []
    parent["Children"] = [child["WebBookmarkUUID"] for child in known]
    for position, child in enumerate(known):
        uid, is_list = child["WebBookmarkUUID"], child["WebBookmarkType"] == LIST
        marker = f"{title_of(child)}-SpecialBookmarkKey"
        special = is_list and parent_id == "Root" and title_of(child) in SPECIAL_TITLES and marker not in found
        found[uid] = entry_in_map(child, parent_id, parent, position, special)
        found |= {marker: marker} if special else {}
        if is_list:
            add_children(found, uid, found[uid], child)


def map_of(bookmarks):
    """The working map as a file's entries have it: each folder before its children, a special one before its marker."""
    root = {"Class": "Folder", "Title": "/", "Position": 0, "Special": False, "Ignored": False, "AutoTab": False}
    found = {"Root": root}
    add_children(found, "Root", root, bookmarks if isinstance(bookmarks, dict) else {})
    return found


def differences(expected, actual):
    """The attributes of `actual` that are not as expected."""
    values = {key: actual.get(key, ABSENT) for key in sorted(expected.keys() | actual.keys())}
    return {key: value for key, value in values.items() if not same(value, expected.get(key, ABSENT))}


def node_words(expected, node):
    """How a node of the map differs from the expected one; no words where it does not."""
    if isinstance(node, dict) and isinstance(expected, dict):
        return attributes(differences(expected, node))
    return [] if same(expected, node) else ["=", value_text(node)]


def map_lines(result):
    if "WorkingMap" not in result:
        return
    expected, actual = map_of(result.get("Bookmarks")), result["WorkingMap"]
    order = [] if list(actual) == list(expected) else ["in the order", *map(name_text, actual)]
    yield " ".join(["WorkingMap as the file", *order])
    for uid, node in actual.items():
        if words := node_words(expected.get(uid, {}), node):
            yield " ".join(["  " + name_text(uid), *words])


def log_lines(log, lines):
    if not isinstance(lines, list) or not all(isinstance(line, str) for line in lines):
        return [f"{log} = {value_text(lines)}"]
    return [log, *("  | " + escaped(line) for line in lines)]


def outcome_lines(scenario, result):
    said = {key: value for key, value in result.items() if key not in SILENT or not same(value, SILENT[key])}
    keys = [key for key in SUMMARY if key in said] + sorted(said.keys() - set(SUMMARY + SECTIONS))
    missing = {key: ABSENT for key in SILENT if key not in result}
    yield " ".join(["Outcome:", *attributes({key: said[key] for key in keys} | missing)])
    for key in DICTIONARIES:
        if key in said:
            yield " ".join([key, *attributes(sorted_by_key(said[key]))])
    yield from bookmarks_lines(scenario, result)
    yield from map_lines(result)
    for log in LOGS:
        if log in said:
            yield from log_lines(log, said[log])
