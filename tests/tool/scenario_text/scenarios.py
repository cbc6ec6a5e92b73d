"""The text of a scripted session: what it is about, what is given, the engine's calls with their answers, the outcome.

    # A title that the engine changes is saved.

    Bookmarks 2026-11-21T10:00:00Z WebBookmarkFileVersion=1
      ant "Ant" http://ant.example/

    applyChange Bookmark modify ant -> accepted
      record Entity="Bookmark" Bookmark_Name="Bat" Bookmark_Url={URL: "http://ant.example/"}
    willFinish -> true

    Outcome: Synced=true SaveAttempts=1 Notifications=["Posted"] FeedAgentWoken=true
    ClientValues modDateOnLastSync=(date of the save)
    Bookmarks WebBookmarkFileVersion=1 WebBookmarkType="WebBookmarkTypeList"
      ant "Bat" http://ant.example/ twice
    WorkingMap as the file

The keys and the calls are those of corvane-scenario.
"""

from scenario_text.outcomes import answer_lines, outcome_lines
from scenario_text.records import CONSTANTS, record_words
from scenario_text.trees import Block, read_rest, tree_lines
from scenario_text.values import INTEGER, WORD, MalformedScenario, attributes, name_text, value_text

OUTCOME = "Outcome:"
VALUE_KEYS = ("ClientId", "UUIDs", "SessionResult", "SessionError")
DICTIONARY_KEYS = ("ClientValues", "Preferences")
CALLS_WITH_ENTITY = ("preferredSyncMode", "records", "changedRecords", "applyChange", "deleteAllRecords")
CALLS = ("didRegister", "didPull", "willFinish", "willCancel", *CALLS_WITH_ENTITY)
CHANGE_TYPES = {"add": 1, "modify": 2, "delete": 3}


def nested(lines):
    """The blocks of numbered lines, where two spaces more put a line into the block before."""
    root = Block(0, "")
    path = [root]
    for number, line in lines:
        text = line.lstrip(" ")
        depth, odd = divmod(len(line) - len(text), 2)
        if odd or depth >= len(path):
            raise MalformedScenario(f"line {number}: the indentation does not follow from the line before")
        del path[depth + 1 :]
        path.append(Block(number, text))
        path[depth].children.append(path[-1])
    return root.children


def read_tree(scanner, block, date_key):
    date = scanner.take_date()
    found = {date_key: date} if date else {}
    if scanner.take_word("absent"):
        scanner.end()
    else:
        found["Bookmarks"] = read_rest(scanner, block, {})
    return found


def read_change(scanner, block):
    word = scanner.take(WORD)
    number = CHANGE_TYPES.get(word) if word else scanner.take(INTEGER)
    change = {"Type": int(number or scanner.fail("add, modify, delete or a number"))}
    change["Identifier"] = scanner.name("an identifier")
    for child in block.children:
        record = child.scanner()
        if not record.take_word("record"):
            record.fail("record")
        change["Record"] = record.attributes(CONSTANTS)
    return change


def read_step(call, scanner, block):
    step = {"Call": call}
    if call in CALLS_WITH_ENTITY:
        step["Entity"] = scanner.name("an entity")
    if call == "applyChange":
        step.update(read_change(scanner, block))
    if not scanner.take_mark("->"):
        scanner.end()
    return step


def read_block(block, scenario):
    scanner = block.scanner()
    word = scanner.take(WORD)
    if word in CALLS:
        scenario.setdefault("Steps", []).append(read_step(word, scanner, block))
    elif word == "Bookmarks":
        scenario.update(read_tree(scanner, block, "BookmarksDate"))
    elif word == "BrowserWrite":
        scenario.setdefault("BrowserWrites", []).append(read_tree(scanner, block, "Date"))
    elif word in DICTIONARY_KEYS:
        scenario[word] = scanner.attributes({})
    elif word in VALUE_KEYS:
        scenario[word] = scanner.value()
        scanner.end()
    else:
        block.scanner().fail("a key of a scenario or a call")


def read_scenario(text):
    """The comment's lines and the property list for corvane-scenario; answers and outcome are not read."""
    comment, lines, scenario = [], [], {}
    for number, line in enumerate(text.split("\n"), 1):
        if line.startswith(OUTCOME):
            break
        if line.startswith("#"):
            comment.append(line)
        elif line:
            lines.append((number, line))
    for block in nested(lines):
        read_block(block, scenario)
    return comment, scenario


def written_lines(word, holder, date_key):
    words = [word, value_text(holder[date_key])] if date_key in holder else [word]
    return tree_lines(words, holder["Bookmarks"]) if "Bookmarks" in holder else [" ".join([*words, "absent"])]


def given_lines(scenario):
    for key in VALUE_KEYS:
        if key in scenario:
            yield f"{key} {value_text(scenario[key])}"
    for key in DICTIONARY_KEYS:
        if key in scenario:
            yield " ".join([key, *attributes(scenario[key])])
    if "Bookmarks" in scenario or "BookmarksDate" in scenario:
        yield from written_lines("Bookmarks", scenario, "BookmarksDate")
    for write in scenario.get("BrowserWrites", []):
        yield from written_lines("BrowserWrite", write, "Date")


def change_words(step):
    words = {number: word for word, number in CHANGE_TYPES.items()}
    return [words.get(step["Type"]) or str(step["Type"]), name_text(step["Identifier"])]


def call_lines(scenario, results):
    steps = scenario.get("Steps", [])
    for index, step in enumerate(steps):
        words = [step["Call"]]
        words += [name_text(step["Entity"])] if "Entity" in step else []
        words += change_words(step) if step["Call"] == "applyChange" else []
        first, *others = answer_lines(step["Call"], results[index : index + 1])
        yield " ".join([*words, first])
        if "Record" in step:
            yield " ".join(["  record", *record_words(step["Record"])])
        yield from others
    for result in results[len(steps) :]:
        yield f"-> {value_text(result)}"


def scenario_text(comment, scenario, result):
    """The whole text of a scenario with that outcome; no two outcomes have the same."""
    results = result.get("Results", [])
    parts = [comment, given_lines(scenario), call_lines(scenario, results), outcome_lines(scenario, result)]
    return "\n".join(text for text in ("".join(line + "\n" for line in part) for part in parts) if text)
