"""The browsers of tests/browsers with the extension in them, and the user's hand on their bookmarks."""

import hashlib
import json
import os
import pathlib
import shutil
import sys
import zipfile

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, os.path.join(HERE, "..", "browsers"))

from browsers import Chromium, Firefox  # noqa: E402

HOST_NAME = "com.keldra.corvane.bookmarks"
CHROMIUM_ID = "jkhpgakcmhjkmpknlofaaacbbofenkdk"
FIREFOX_ID = "bookmarks@corvane.keldra.com"


def write_manifest(directory, host, allowed):
    """Tells the browser of the program."""
    os.makedirs(directory, exist_ok=True)
    manifest = {"name": HOST_NAME, "description": "Corvane Bookmarks", "path": host, "type": "stdio", **allowed}
    pathlib.Path(directory, HOST_NAME + ".json").write_text(json.dumps(manifest), encoding="utf-8")


def write_relay(directory, address):
    """A program that a browser can start, and that calls at the socket."""
    path = pathlib.Path(directory, "relay")
    path.write_text(f'#!/bin/sh\nexec "{sys.executable}" -B "{HERE}/relay.py" "{address}" "$@"\n', encoding="utf-8")
    path.chmod(0o755)
    return str(path)


def extension_id(named_by):
    """Chromium's, for an extension that is named by its key or its place."""
    return hashlib.sha256(named_by).hexdigest()[:32].translate(str.maketrans("0123456789abcdef", "abcdefghijklmnop"))


class Extended:
    """A browser with the extension and what it speaks to."""

    def new_profile(self):
        """Deletes the one of the browser, which does not run."""
        shutil.rmtree(self.profile)
        os.mkdir(self.profile)
        self.furnish()


def whole(body):
    return f"return (async (...parameters) => {{{body}}})(...arguments);"


# In both: `make` puts a tree of [title, contents] into a folder, contents being an address, a list, or null for a separator.
class ChromiumWithExtension(Extended, Chromium):
    """Its user works by another extension's page: the bookmark manager does the same, but draws everything anew at each change."""

    flavour = "chromium"
    language = "de"

    def __init__(self, extension, host):
        super().__init__()
        # Debian's program looks for its language in the environment.
        self.environment["LANGUAGE"] = self.language
        hand = os.path.join(self.profile, "hand")
        self.arguments = (f"--load-extension={extension},{hand}", f"--lang={self.language}")
        self.host = host
        # Its id is that of its place.
        self.hand = f"chrome-extension://{extension_id(hand.encode())}/hand.html"
        self.furnish()

    def furnish(self):
        hand = pathlib.Path(self.profile, "hand")
        hand.mkdir()
        manifest = {"manifest_version": 3, "name": "Hand", "version": "1", "permissions": ["bookmarks"]}
        (hand / "manifest.json").write_text(json.dumps(manifest), encoding="utf-8")
        (hand / "hand.html").write_text("<!doctype html><title>Hand</title>", encoding="utf-8")
        write_manifest(os.path.join(self.data, "NativeMessagingHosts"), self.host,
                       {"allowed_origins": [f"chrome-extension://{CHROMIUM_ID}/"]})

    def by_user(self, body, *parameters):
        if self.script("return location.href") != self.hand:
            self.open(self.hand)
        return self.script(whole(body), *parameters)

    def in_manager(self, body, *parameters):
        self.open("chrome://bookmarks")
        return self.script(whole(body), *parameters)

    def make(self, parent, entries):
        return self.by_user("""
            const make = async (parentId, entries) => {
              for (const [title, contents] of entries) {
                const isFolder = Array.isArray(contents);
                const made = await chrome.bookmarks.create(isFolder ? {parentId, title} : {parentId, title, url: contents});
                if (isFolder) await make(made.id, contents);
              }
            };
            await make(...parameters);""", parent, entries)

    def rename(self, node, title):
        self.by_user("await chrome.bookmarks.update(parameters[0], {title: parameters[1]})", node, title)

    def readdress(self, node, address):
        self.by_user("await chrome.bookmarks.update(parameters[0], {url: parameters[1]})", node, address)

    def move(self, node, parent, index):
        """Before what stands at the index, of the node's own folder too."""
        self.by_user("await chrome.bookmarks.move(parameters[0], {parentId: parameters[1], index: parameters[2]})",
                     node, parent, index)

    def remove(self, node):
        self.by_user("await chrome.bookmarks.removeTree(parameters[0])", node)

    def count(self, beginning):
        """Bookmarks whose addresses begin so, for which the browser does less than for `roots`."""
        return self.by_user("""
            const found = await chrome.bookmarks.search(parameters[0]);
            return found.filter(each => each.url?.startsWith(parameters[0])).length;""", beginning)

    def roots(self):
        """By what they are, as trees of {id, title, url, children}."""
        return self.by_user("""
            const [top] = await chrome.bookmarks.getTree();
            const form = ({id, title, url, children}) =>
              url === undefined ? {id, title, children: (children ?? []).map(form)} : {id, title, url};
            const names = {"bookmarks-bar": "bar", other: "other"};
            return Object.fromEntries(top.children.filter(each => names[each.folderType])
              .map(each => [names[each.folderType], form(each)]));""")

    def popup(self):
        return f"chrome-extension://{CHROMIUM_ID}/popup.html"

    def reload_extension(self):
        self.open("chrome://extensions")
        # "Reload" is for those whose developer mode is on.
        for enabled in (False, True):
            self.script(whole("await chrome.management.setEnabled(...parameters)"), CHROMIUM_ID, enabled)


IN_PLACES = """
const {PlacesUtils} = ChromeUtils.importESModule("resource://gre/modules/PlacesUtils.sys.mjs");
const {bookmarks} = PlacesUtils;
"""


class FirefoxWithExtension(Extended, Firefox):
    """Its user works in the browser's own bookmarks service."""

    flavour = "firefox"
    language = "en"

    def __init__(self, extension, host):
        super().__init__()
        self.preferences = {"xpinstall.signatures.required": False, "extensions.autoDisableScopes": 0}
        self.extension, self.host = extension, host
        self.furnish()

    def furnish(self):
        extensions = os.path.join(self.profile, "extensions")
        os.mkdir(extensions)
        with zipfile.ZipFile(os.path.join(extensions, FIREFOX_ID + ".xpi"), "w") as archive:
            for file in sorted(pathlib.Path(self.extension).rglob("*")):
                archive.write(file, file.relative_to(self.extension))
        write_manifest(os.path.join(self.profile, ".mozilla", "native-messaging-hosts"), self.host,
                       {"allowed_extensions": [FIREFOX_ID]})

    def by_user(self, body, *parameters):
        return self.in_browser(whole(IN_PLACES + body), *parameters)

    def make(self, parent, entries):
        return self.by_user("""
            const form = ([title, contents]) => contents === null ? {type: bookmarks.TYPE_SEPARATOR}
              : Array.isArray(contents) ? {type: bookmarks.TYPE_FOLDER, title, children: contents.map(form)}
              : {type: bookmarks.TYPE_BOOKMARK, title, url: contents};
            await bookmarks.insertTree({guid: parameters[0], children: parameters[1].map(form)});""", parent, entries)

    def rename(self, node, title):
        self.by_user("await bookmarks.update({guid: parameters[0], title: parameters[1]})", node, title)

    def readdress(self, node, address):
        self.by_user("await bookmarks.update({guid: parameters[0], url: parameters[1]})", node, address)

    def move(self, node, parent, index):
        """Before what stands at the index, of the node's own folder too."""
        self.by_user("""
            const [guid, parentGuid, index] = parameters;
            const before = await bookmarks.fetch(guid);
            const later = before.parentGuid === parentGuid && before.index < index ? 1 : 0;
            await bookmarks.update({guid, parentGuid, index: index - later});""", node, parent, index)

    def remove(self, node):
        self.by_user("await bookmarks.remove(parameters[0])", node)

    def count(self, beginning):
        """Bookmarks whose addresses begin so, for which the browser does less than for `roots`."""
        return self.by_user("""
            const database = await PlacesUtils.promiseDBConnection();
            const [row] = await database.execute(
              `SELECT COUNT(*) FROM moz_bookmarks JOIN moz_places ON fk = moz_places.id WHERE type = 1 AND url GLOB ? || '*'`,
              parameters);
            return row.getResultByIndex(0);""", beginning)

    def hold_writes(self):
        """The service waits with all that is to be written from now on, since another connection writes, until `release_writes`."""
        self.by_user("""
            const {Sqlite} = ChromeUtils.importESModule("resource://gre/modules/Sqlite.sys.mjs");
            PlacesUtils.held = await Sqlite.openConnection({path: PathUtils.join(PathUtils.profileDir, "places.sqlite")});
            await PlacesUtils.held.execute("BEGIN IMMEDIATE");""")

    def release_writes(self):
        self.by_user("""
            await PlacesUtils.held.execute("COMMIT");
            await PlacesUtils.held.close();""")

    def roots(self):
        """By what they are, as trees of {id, title, url, children}."""
        # The service's own tree would cost a query for each node, and hold up what else the browser does.
        return self.by_user("""
            const database = await PlacesUtils.promiseDBConnection();
            const rows = await database.execute(
              `SELECT node.id, parent, node.guid, type, IFNULL(node.title, ''), url
               FROM moz_bookmarks node LEFT JOIN moz_places ON fk = moz_places.id ORDER BY position`);
            const names = {toolbar_____: "bar", menu________: "menu", unfiled_____: "other"};
            const [nodes, roots] = [new Map(), {}];
            for (const row of rows) {
              const [number, , id, type, title, url] = [0, 1, 2, 3, 4, 5].map(column => row.getResultByIndex(column));
              nodes.set(number, type === bookmarks.TYPE_FOLDER ? {id, title, children: []} : {id, title, url});
              if (id in names) roots[names[id]] = nodes.get(number);
            }
            for (const row of rows) nodes.get(row.getResultByIndex(1))?.children.push(nodes.get(row.getResultByIndex(0)));
            return roots;""")

    def tag(self, address, *tags):
        self.by_user("PlacesUtils.tagging.tagURI(Services.io.newURI(parameters[0]), parameters[1])", address, tags)

    def reload_extension(self):
        self.open("about:blank")  # a window ends with the last page, if that is the extension's
        self.in_browser(whole("""
            const {AddonManager} = ChromeUtils.importESModule("resource://gre/modules/AddonManager.sys.mjs");
            await (await AddonManager.getAddonByID(parameters[0])).reload();"""), FIREFOX_ID)

    def speak(self, language):
        """As with that language's package; the extension begins anew."""
        self.in_browser("""
            Services.locale.availableLocales = ["en-US", arguments[0]];
            Services.locale.requestedLocales = [arguments[0]];""", language)
        self.reload_extension()

    def popup(self):
        return self.in_browser("""
            return WebExtensionPolicy.getByID(arguments[0]).getURL("popup.html");""", FIREFOX_ID)


def copy_extension(source, directory):
    """A copy to be loaded: the browser may write beside it."""
    return shutil.copytree(source, os.path.join(directory, "extension"))
