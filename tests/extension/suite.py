"""What whoever plays the browser's side has to do with each request, whether it is the extension in a real browser or a scripted
one. A test case names its `flavour`, "chromium" or "firefox", and has a `host` that has heard `hello`."""

# Titles, and what the browser makes of them.
TITLES = (
    ("plain", "A title", {}),
    ("markup", "<b>\"q\" & 'r'</b> %1 \\u", {}),
    ("blanks at the ends", "  two  blanks ", {}),
    ("line ends and a tab", "one\ntwo\r\nthree\tfour", {"chromium": "one two  three four"}),
    ("other scripts", "עברית 日本語 \U0001f600 \u202eturned\u202c", {}),
    ("empty", "", {}),
    ("5,000 characters", "x" * 5000, {"firefox": "x" * 4096}),
)
# Addresses, and what the browser makes of them; None where it refuses.
REFUSED = {"chromium": None, "firefox": None}
ADDRESSES = (
    ("plain", "https://example.com/a?b=1#c", {}),
    ("no slash after the host", "https://example.com", {"chromium": "https://example.com/", "firefox": "https://example.com/"}),
    ("upper case", "HTTPS://EXAMPLE.com/A", {"chromium": "https://example.com/A", "firefox": "https://example.com/A"}),
    ("a host in another script", "https://bücher.example/",
     {"chromium": "https://xn--bcher-kva.example/", "firefox": "https://xn--bcher-kva.example/"}),
    ("a blank", "https://example.com/a b", {"chromium": "https://example.com/a%20b", "firefox": "https://example.com/a%20b"}),
    ("the scheme's own port", "https://example.com:443/",
     {"chromium": "https://example.com/", "firefox": "https://example.com/"}),
    ("a bookmarklet", "javascript:alert(1)", {}),
    ("of the browser's own", "about:blank", {}),
    ("no scheme", "example.com/a", REFUSED),
    ("no host", "https://", REFUSED),
    ("a port that is none", "https://example.com:99999/", REFUSED),
    ("empty", "", REFUSED),
)
NOWHERE = {"chromium": "987654", "firefox": "nowhere_____"}


def wanted(title, url=None):
    return {"title": title} if url is None else {"title": title, "url": url}


class Requests:
    """Each test works in a folder of its own."""

    def setUp(self):
        self.roots = {node["root"]: node["id"] for node in self.host.read() if node["kind"] == "root"}
        # What is left of the test before.
        self.host.others.clear()
        self.folder = self.make(self.roots["other"], self.id())

    def tearDown(self):
        self.clear(self.folder)

    def clear(self, top):
        """Removes a folder with all that is in it, from below."""
        inside, doomed = {top}, []
        for node in self.host.read():
            if node.get("parent") in inside or node["id"] == top:
                inside.add(node["id"])
                doomed.append(node)
        for node in reversed(doomed):
            expect = {key: node[key] for key in ("kind", "title", "url") if key in node}
            self.assertEqual(self.host.ask("remove", node=node["id"], expect=expect), {"removed": True})

    def create(self, parent, title, url=None, index=0):
        return self.host.ask("create", parent=parent, index=index, nodes=[wanted(title, url)])

    def make(self, parent, title, url=None, index=0):
        answer = self.create(parent, title, url, index)
        self.assertNotIn("error", answer)
        return answer["node"]["id"]

    def fill(self, parent, titles):
        nodes = [wanted(title, f"https://{title}.example/") for title in titles]
        made = self.host.answers("create", parent=parent, index=0, nodes=nodes)
        return {answer["node"]["title"]: answer["node"]["id"] for answer in made}

    def titles(self, parent):
        return [node["title"] for node in self.host.read() if node.get("parent") == parent]

    def assert_refused(self, answer, missing=False):
        self.assertEqual(sorted(answer.keys() - {"more"}), ["error", "missing"])
        self.assertIs(answer["missing"], missing, answer)
        self.assertTrue(answer["error"])

    def made_of(self, forms, asked):
        return forms.get(self.flavour, asked)

    def test_read_gives_the_roots_by_what_they_are(self):
        roots = [node for node in self.host.read() if node["kind"] == "root"]
        found = sorted(node["root"] for node in roots)
        self.assertEqual(found, {"chromium": ["bar", "other"], "firefox": ["bar", "menu", "mobile", "other"]}[self.flavour])
        for node in roots:
            self.assertNotIn("parent", node)
            self.assertNotIn("url", node)

    def test_read_gives_parents_before_children_and_siblings_in_their_order(self):
        inner = self.make(self.folder, "inner")
        self.fill(self.folder, ["after", "last"])
        self.fill(inner, ["x", "y"])
        self.make(inner, "between", index=1)
        nodes = self.host.read()
        seen = set()
        for node in nodes:
            self.assertTrue(node["kind"] == "root" or node["parent"] in seen)
            seen.add(node["id"])
        self.assertEqual(len(seen), len(nodes))
        at = next(place for place, node in enumerate(nodes) if node["id"] == self.folder)
        listed = [(node["kind"], node["title"]) for node in nodes[at + 1:at + 7]]
        self.assertEqual(listed, [("bookmark", "after"), ("bookmark", "last"), ("folder", "inner"), ("bookmark", "x"),
                                  ("folder", "between"), ("bookmark", "y")])

    def test_read_gives_no_message_more_than_it_may_hold(self):
        for number in range(8):
            self.make(self.folder, "<" * 4000, f"https://{number}.example/{'é' * 9000}")
        answers = self.host.answers("read")
        self.assertGreater(len(answers), 1)
        self.assertEqual([each["more"] for each in answers], [True] * (len(answers) - 1) + [False])
        own = [node for each in answers for node in each["nodes"] if node.get("parent") == self.folder]
        self.assertEqual(len(own), 8)

    def test_create_makes_a_bookmark_at_its_place(self):
        self.fill(self.folder, ["a", "b"])
        node = self.create(self.folder, "new", "https://new.example/", 1)["node"]
        self.assertGreater(node.pop("added"), 1_600_000_000_000)
        self.assertEqual(node, {"id": node["id"], "parent": self.folder, "kind": "bookmark", "title": "new", "index": 1,
                                "url": "https://new.example/"})
        self.assertEqual(self.titles(self.folder), ["a", "new", "b"])

    def test_create_without_an_address_makes_a_folder(self):
        node = self.create(self.folder, "new")["node"]
        self.assertEqual(node["kind"], "folder")
        self.assertNotIn("url", node)

    def test_create_beyond_the_end_makes_it_at_the_end(self):
        self.fill(self.folder, ["a", "b"])
        node = self.create(self.folder, "new", "https://new.example/", 9)["node"]
        self.assertEqual(node["index"], 2)

    def test_create_of_several_makes_them_one_behind_the_other(self):
        self.fill(self.folder, ["a", "b"])
        nodes = [wanted("new", "https://new.example/"), wanted("refused", "no scheme"), wanted("inner"), wanted("last", "about:blank")]
        answers = self.host.answers("create", parent=self.folder, index=1, nodes=nodes)
        self.assertEqual([each["more"] for each in answers], [True, True, True, False])
        self.assert_refused(answers[1])
        self.assertEqual([each["node"]["index"] for each in answers if "node" in each], [1, 2, 3])
        self.assertEqual(self.titles(self.folder), ["a", "new", "inner", "last", "b"])

    def test_create_in_what_is_not_there_says_so(self):
        self.assert_refused(self.create(NOWHERE[self.flavour], "new"), missing=True)

    def test_titles_come_back_as_the_browser_has_them(self):
        for phrase, title, forms in TITLES:
            with self.subTest(phrase):
                node = self.create(self.folder, title, "https://a.example/")["node"]
                self.assertEqual(node["title"], self.made_of(forms, title))
                before = self.make(self.folder, "before", "https://a.example/")
                node = self.host.ask("update", node=before, title=title)["node"]
                self.assertEqual(node["title"], self.made_of(forms, title))

    def test_addresses_come_back_as_the_browser_has_them(self):
        for phrase, address, forms in ADDRESSES:
            kept = self.made_of(forms, address)
            for kind in ("create", "update"):
                with self.subTest(phrase, kind=kind):
                    answer = self.create(self.folder, "x", address if kind == "create" else "https://before.example/")
                    if kind == "update":
                        answer = self.host.ask("update", node=answer["node"]["id"], url=address)
                    if kept is None:
                        self.assert_refused(answer)
                    else:
                        self.assertEqual((answer["node"]["kind"], answer["node"]["url"]), ("bookmark", kept))

    def test_update_changes_what_is_named_alone(self):
        node = self.make(self.folder, "old", "https://old.example/")
        changed = self.host.ask("update", node=node, title="new")["node"]
        self.assertEqual((changed["title"], changed["url"]), ("new", "https://old.example/"))
        changed = self.host.ask("update", node=node, url="https://new.example/")["node"]
        self.assertEqual((changed["title"], changed["url"]), ("new", "https://new.example/"))
        changed = self.host.ask("update", node=node, title="both", url="https://both.example/")["node"]
        self.assertEqual((changed["title"], changed["url"]), ("both", "https://both.example/"))

    def test_update_leaves_what_the_user_has_changed(self):
        node = self.make(self.folder, "old", "https://old.example/")
        for expect in ({"title": "older"}, {"url": "https://older.example/"}, {"kind": "folder"}):
            answer = self.host.ask("update", node=node, title="new", expect=expect)
            self.assertEqual(answer, {"error": "different", "missing": False})
        self.assertEqual(self.titles(self.folder), ["old"])
        answer = self.host.ask("update", node=node, title="new",
                               expect={"kind": "bookmark", "title": "old", "url": "https://old.example/"})
        self.assertEqual(answer["node"]["title"], "new")

    def test_update_of_what_is_not_there_says_so(self):
        self.assert_refused(self.host.ask("update", node=NOWHERE[self.flavour], title="x"), missing=True)

    def test_move_within_a_folder_gives_the_place_that_was_asked_for(self):
        nodes = self.fill(self.folder, "abcd")
        order = list("abcd")
        for title, place in (("a", 3), ("b", 1), ("d", 0), ("d", 0), ("c", 2), ("a", 1), ("b", 3), ("b", 0), ("c", 1)):
            with self.subTest(title=title, place=place):
                answer = self.host.ask("move", node=nodes[title], parent=self.folder, index=place)
                order.remove(title)
                order.insert(place, title)
                self.assertEqual(answer["node"]["index"], place)
                self.assertEqual(self.titles(self.folder), order)

    def test_move_to_another_folder_gives_the_place_that_was_asked_for(self):
        inner = self.make(self.folder, "inner")
        nodes = self.fill(self.folder, "ab")
        self.fill(inner, "xy")
        answer = self.host.ask("move", node=nodes["b"], parent=inner, index=1)
        self.assertEqual((answer["node"]["parent"], answer["node"]["index"]), (inner, 1))
        self.assertEqual(self.titles(inner), ["x", "b", "y"])

    def test_move_beyond_the_end_moves_to_the_end(self):
        inner = self.make(self.folder, "inner")
        nodes = self.fill(self.folder, "abc")
        self.fill(inner, "x")
        self.assertEqual(self.host.ask("move", node=nodes["a"], parent=self.folder, index=9)["node"]["index"], 3)
        self.assertEqual(self.host.ask("move", node=nodes["a"], parent=inner, index=9)["node"]["index"], 1)

    def test_move_of_a_folder_takes_what_is_in_it(self):
        inner = self.make(self.folder, "inner")
        self.fill(inner, "xy")
        self.host.ask("move", node=inner, parent=self.roots["bar"], index=0)
        self.assertEqual(self.titles(inner), ["x", "y"])
        self.clear(inner)

    def test_move_into_itself_is_refused(self):
        outer = self.make(self.folder, "outer")
        inner = self.make(outer, "inner")
        self.assert_refused(self.host.ask("move", node=outer, parent=inner, index=0))
        self.assertEqual(self.titles(outer), ["inner"])

    def test_move_leaves_what_the_user_has_moved(self):
        inner = self.make(self.folder, "inner")
        node = self.make(self.folder, "a", "https://a.example/")
        answer = self.host.ask("move", node=node, parent=inner, index=0, expect={"parent": inner})
        self.assertEqual(answer, {"error": "different", "missing": False})
        answer = self.host.ask("move", node=node, parent=inner, index=0, expect={"parent": self.folder})
        self.assertEqual(answer["node"]["parent"], inner)

    def test_move_to_what_is_not_there_says_so(self):
        node = self.make(self.folder, "a", "https://a.example/")
        self.assert_refused(self.host.ask("move", node=node, parent=NOWHERE[self.flavour], index=0), missing=True)

    def test_remove_takes_only_what_was_expected(self):
        node = self.make(self.folder, "a", "https://a.example/")
        expect = {"kind": "bookmark", "title": "a", "url": "https://a.example/"}
        for difference in ({"kind": "folder"}, {"title": "b"}, {"url": "https://b.example/"}):
            answer = self.host.ask("remove", node=node, expect={**expect, **difference})
            self.assertEqual(answer, {"error": "different", "missing": False})
        self.assertEqual(self.titles(self.folder), ["a"])
        self.assertEqual(self.host.ask("remove", node=node, expect=expect), {"removed": True})
        self.assertEqual(self.titles(self.folder), [])
        self.assert_refused(self.host.ask("remove", node=node, expect=expect), missing=True)

    def test_remove_of_a_folder_wants_it_empty(self):
        inner = self.make(self.folder, "inner")
        nodes = self.fill(inner, "x")
        expect = {"kind": "folder", "title": "inner"}
        self.assert_refused(self.host.ask("remove", node=inner, expect=expect))
        self.assertEqual(self.titles(inner), ["x"])
        self.host.ask("remove", node=nodes["x"], expect={"kind": "bookmark", "title": "x", "url": "https://x.example/"})
        self.assertEqual(self.host.ask("remove", node=inner, expect=expect), {"removed": True})

    def test_roots_stay_as_they_are(self):
        before = [node for node in self.host.read() if node["kind"] == "root"]
        for node in before:
            self.assert_refused(self.host.ask("update", node=node["id"], title="x"))
            self.assert_refused(self.host.ask("move", node=node["id"], parent=self.folder, index=0))
            self.assert_refused(self.host.ask("remove", node=node["id"], expect={"kind": "root", "title": node["title"]}))
        self.assertEqual([node for node in self.host.read() if node["kind"] == "root"], before)

    def test_what_is_unknown_is_left_aside(self):
        self.host.send({"type": "surprise", "id": 1})
        node = self.host.ask("create", parent=self.folder, index=0, nodes=[wanted("new")], colour="red")["node"]
        self.assertEqual(node["title"], "new")
