"""The engine's records as text: attributes, with a short word for each constant."""

from scenario_text.values import key_text, quoted, value_text

CONSTANTS = {
    "Entity": "LoomerRecordEntityNameKey",
    "Folder_Name": "LoomerAttribute_Bookmarks_Folder_Name",
    "Folder_Position": "LoomerAttribute_Bookmarks_Folder_Position",
    "Folder_Parent": "LoomerRelationship_Bookmarks_Folder_Parent",
    "Folder_Children": "LoomerRelationship_Bookmarks_Folder_Children",
    "Bookmark_Name": "LoomerAttribute_Bookmarks_Bookmark_Name",
    "Bookmark_Url": "LoomerAttribute_Bookmarks_Bookmark_Url",
    "Bookmark_Position": "LoomerAttribute_Bookmarks_Bookmark_Position",
    "Bookmark_Parent": "LoomerRelationship_Bookmarks_Bookmark_Parent",
}
SHORT = {constant: short for short, constant in CONSTANTS.items()}


def in_usual_order(record):
    """A record whose constants stand in the order of the table, before the other keys."""
    keys = [key for key in SHORT if key in record] + sorted(record.keys() - SHORT.keys())
    return {key: record[key] for key in keys}


def record_words(record):
    """The words of a record; a key that only looks like a short word is in quotes."""
    for key, value in record.items():
        text = quoted(key) if key in CONSTANTS else SHORT.get(key) or key_text(key)
        yield f"{text}={value_text(value)}"
