#include <gtest/gtest.h>

#include "tests/loomer/merge/History.h"
#include "tests/loomer/merge/MergeCase.h"

namespace corvane::loomer::test {
namespace {

struct Row {
  const char* phrase;
  ThreeTrees trees;
  const char* truth;    // the truth, and the client's tree, after the merge
  const char* changes;  // for the client
  const char* losses = "";
};

void PrintTo(const Row& row, std::ostream* out) { *out << row.phrase; }

class MergeTest : public ::testing::TestWithParam<Row> {};

TEST_P(MergeTest, EndsAsExpected) {
  const Row& row = GetParam();
  SCOPED_TRACE(row.phrase);
  MergeCase merged(row.trees);
  merged.run();
  EXPECT_EQ(merged.truth(), row.truth);
  EXPECT_EQ(merged.heldByClient(), row.truth);
  EXPECT_EQ(merged.changes(), row.changes);
  EXPECT_EQ(merged.losses(), row.losses);
  EXPECT_NO_THROW(requireSound(merged.input(), merged.result()));
}

const Row kIdentity[] = {
    {"nothing new on either side changes nothing", {"F(a b) c", "F(a b) c", "F(a b) c"}, "F(a b) c", ""},
    {"a first session into an empty truth delivers nothing", {"", "", "M!() F(a b) c"}, "M!() F(a b) c", ""},
    {"a first client session takes an equal tree for its own",
     {"", "F(a b) c", "F(a b) c", true},
     "F(a b) c",
     ""},
    {"known local ids go by the base, whatever they are called", {"a b", "a=x@y b", "a b"}, "a=x@y b", "~a"},
    {"special folders are matched by title", {"", "m=Menu!(a)", "n=Menu!(b)", true}, "m=Menu!(a b)", "+a"},
    {"folders are matched by parent and title",
     {"", "F=f(G=g(a))", "H=f(K=g(b))", true},
     "F=f(G=g(a b))",
     "+a"},
    {"a folder of another title is another folder", {"", "F=f(a)", "H=F(a)", true}, "F=f(a) H=F(a)", "+F +a"},
    {"bookmarks are matched by parent, address and title", {"", "a=t@u", "b=t@u", true}, "a=t@u", ""},
    {"then by parent and address",
     {"", "a=t@u", "b=s@u", true},
     "a=t@u",
     "~a",
     "name of a: client s, truth t, truth wins"},
    {"the title goes before the address alone", {"", "a=t@u b=s@u", "x=s@u", true}, "a=t@u b=s@u", "+a"},
    {"the same bookmark in another folder is another bookmark",
     {"", "F(a=t@u)", "F() b=t@u", true},
     "F(a=t@u) b=t@u",
     "+a"},
    {"two equal bookmarks in one folder stay two",
     {"", "a=t@u b=t@u", "x=t@u y=t@u", true},
     "a=t@u b=t@u",
     ""},
    {"one to one: the third equal bookmark is new",
     {"", "a=t@u b=t@u", "x=t@u y=t@u z=t@u", true},
     "a=t@u b=t@u z=t@u",
     ""},
    {"a bookmark without an address is not matched by address",
     {"", "a=t@", "b=s@", true},
     "a=t@ b=s@",
     "+a"},
    {"what a killed session had delivered is matched in a slow session",
     {"a", "a b F(c)", "a b F(c)"},
     "a b F(c)",
     ""},
    {"what matches nothing is new", {"a", "a", "a b F(c)"}, "a b F(c)", ""},
};
INSTANTIATE_TEST_SUITE_P(Identity, MergeTest, ::testing::ValuesIn(kIdentity));

const Row kAttributes[] = {
    {"changed on the client alone", {"a", "a", "a=x@y"}, "a=x@y", ""},
    {"changed in the truth alone", {"a", "a=x@y", "a"}, "a=x@y", "~a"},
    {"a title edited here and an address edited there both survive", {"a", "a@y", "a=x"}, "a=x@y", "~a"},
    {"changed on both sides: the client's value stands and the other is noted",
     {"a", "a=t", "a=c"},
     "a=c",
     "",
     "name of a: client c, truth t, client wins"},
    {"a title that is not there is told from an empty one",
     {"a", "a=t", "a="},
     "a=",
     "",
     "name of a: client (none), truth t, client wins"},
    {"the same change on both sides is no conflict", {"a", "a=x", "a=x"}, "a=x", ""},
    {"in a refresh the truth's value stands where both changed",
     {"a", "a=t@v", "a=c", true},
     "a=t@v",
     "~a",
     "name of a: client c, truth t, truth wins"},
    {"in a refresh what only the client changed survives", {"a", "a@v", "a=c", true}, "a=c@v", "~a"},
    {"a folder's way of opening merges on its own", {"F()", "F*()", "F=g()"}, "F=g*()", "~F"},
    {"a cleared bookmark title is a change", {"a", "a", "a="}, "a=", ""},
    {"an address that the client could not send stays, on both sides", {"a", "a", "a@"}, "a", ""},
    {"an address that the client could not send gives way to a new one", {"a", "a@x", "a@"}, "a@x", "~a"},
    {"a folder title that the client could not send stays, and what is below it",
     {"F(a b)", "F(a b)", "F=()"},
     "F(a b)",
     "~F +b +a"},
    {"being special goes with the name that made it so",
     {"F=x()", "F=BookmarksBar!()", "F=y()"},
     "F=y()",
     "",
     "name of F: client y, truth BookmarksBar, client wins"},
    {"a special folder that leaves the root is no longer special",
     {"F() M=BookmarksMenu!()", "F() M=BookmarksMenu!()", "F(M=BookmarksMenu())"},
     "F(M=BookmarksMenu())",
     ""},
    {"of two special folders of one title the truth's stays special",
     {"F=f() G=g()", "F=BookmarksBar!() G=g()", "F=f() G=BookmarksBar!()"},
     "F=BookmarksBar!() G=BookmarksBar()",
     "~G ~F"},
};
INSTANTIATE_TEST_SUITE_P(Attributes, MergeTest, ::testing::ValuesIn(kAttributes));

const Row kDeleting[] = {
    {"missing from the client and unchanged in the truth: deleted", {"a b", "a b", "b"}, "b", ""},
    {"deleted in the truth and unchanged on the client: deleted", {"a b", "b", "a b"}, "b", "-a"},
    {"deleted on both sides", {"a b", "b", "b"}, "b", ""},
    {"changed in the truth meanwhile: it comes back to the client",
     {"a b", "a=x b", "b"},
     "a=x b",
     "+a",
     "deletion of a: client deleted, truth kept, truth wins"},
    {"moved in the truth meanwhile: it comes back to the client",
     {"a F()", "F(a)", "F()"},
     "F(a)",
     "+a",
     "deletion of a: client deleted, truth kept, truth wins"},
    {"deleted in the truth but changed on the client: it lives",
     {"a b", "b", "a=x b"},
     "a=x b",
     "",
     "deletion of a: client kept, truth deleted, client wins"},
    {"a reorder by the client does not keep alive what the truth deleted",
     {"a b c", "b c", "c b a"},
     "c b",
     "-a"},
    {"a reorder in the truth does not keep alive what the client deleted",
     {"a b c", "c b a", "b c"},
     "c b",
     "~b"},
    {"a folder that the client only moved to the front goes with its contents when the truth deleted it",
     {"a F(b c)", "a", "F(b c) a"},
     "a",
     "-F -c -b"},
    {"a folder whose contents the truth only reordered goes when the client deleted it",
     {"a F(b c)", "a F(c b)", "a"},
     "a",
     ""},
    {"a reorder and another change of what the other side deleted: it lives, where it was put",
     {"a b c", "b c", "b c a=x"},
     "b c a=x",
     "",
     "deletion of a: client kept, truth deleted, client wins"},
    {"a folder and all in it deleted by the client", {"F(G(a) b) c", "F(G(a) b) c", "c"}, "c", ""},
    {"a folder and all in it deleted in the truth", {"F(G(a) b) c", "c", "F(G(a) b) c"}, "c", "-G -F -a -b"},
    {"a folder deleted by the client lives on with what the truth added to it",
     {"F(a) c", "F(a n) c", "c"},
     "F(n) c",
     "+F +n",
     "deletion of F: client deleted, truth kept, truth wins"},
    {"a folder deleted by the client lives on with what the truth moved into it",
     {"F(a) c", "F(a c)", "c"},
     "F(c)",
     "+F ~c",
     "deletion of F: client deleted, truth kept, truth wins"},
    {"a folder deleted by the client lives on with what the truth changed in it, however deep",
     {"F(G(a b))", "F(G(a=x b))", ""},
     "F(G(a=x))",
     "+F +G +a",
     "deletion of F: client deleted, truth kept, truth wins; deletion of G: client deleted, truth kept, "
     "truth wins; "
     "deletion of a: client deleted, truth kept, truth wins"},
    {"a folder deleted in the truth lives on with what the client added to it",
     {"F(a) c", "c", "F(a n) c"},
     "F(n) c",
     "-a",
     "deletion of F: client kept, truth deleted, client wins"},
    {"a folder deleted in the truth lives on with what the client moved into it",
     {"F(a) c", "c", "F(a c)"},
     "F(c)",
     "-a",
     "deletion of F: client kept, truth deleted, client wins"},
    {"a folder deleted in the truth lives on with what the client changed in it",
     {"F(G(a b))", "", "F(G(a=x b))"},
     "F(G(a=x))",
     "-b",
     "deletion of F: client kept, truth deleted, client wins; deletion of G: client kept, truth deleted, "
     "client wins; "
     "deletion of a: client kept, truth deleted, client wins"},
    {"a folder renamed by the client and deleted in the truth comes back with what it held",
     {"F(a G(b)) c", "c", "F=x(a G(b)) c"},
     "F=x(a G(b)) c",
     "",
     "deletion of F: client kept, truth deleted, client wins; deletion of a: client kept, truth deleted, "
     "client wins; "
     "deletion of G: client kept, truth deleted, client wins; deletion of b: client kept, truth deleted, "
     "client wins"},
    {"a folder renamed in the truth and deleted by the client comes back with what it held",
     {"F(a G(b)) c", "F=x(a G(b)) c", "c"},
     "F=x(a G(b)) c",
     "+F +G +a +b",
     "deletion of F: client deleted, truth kept, truth wins; deletion of a: client deleted, truth kept, "
     "truth wins; "
     "deletion of G: client deleted, truth kept, truth wins; deletion of b: client deleted, truth kept, "
     "truth wins"},
    {"a folder moved on one side and deleted on the other comes back with what it held",
     {"F(a) D()", "D()", "D(F(a))"},
     "D(F(a))",
     "",
     "deletion of F: client kept, truth deleted, client wins; deletion of a: client kept, truth deleted, "
     "client wins"},
    {"what the client moved out of a folder that it deleted does not go back",
     {"F(a b)", "F=x(a b)", "a"},
     "F=x(b) a",
     "+F +b",
     "deletion of F: client deleted, truth kept, truth wins; deletion of b: client deleted, truth kept, "
     "truth wins"},
    {"what the client moved out of a folder deleted in the truth is not lost",
     {"F(a b) c", "c", "F(b) a c"},
     "a c",
     "-F -b",
     "deletion of a: client kept, truth deleted, client wins"},
    {"what the truth moved out of a folder that the client deleted is not lost",
     {"F(a) c", "F() a c", "c"},
     "a c",
     "+a",
     "deletion of a: client deleted, truth kept, truth wins"},
    {"in a refresh nothing is deleted because the client lacks it",
     {"a F(b)", "a F(b)", "", true},
     "a F(b)",
     "+F +a +b"},
    {"in a refresh what the truth deleted is deleted", {"a b", "b", "a b", true}, "b", "-a"},
};
INSTANTIATE_TEST_SUITE_P(Deleting, MergeTest, ::testing::ValuesIn(kDeleting));

TEST(Deleting, WhatWasDeletedBeforeAFolderDoesNotComeBackWithIt) {
  MergeCase merged({"F(a b)", "", "F=x(a b)"});
  for (TruthRecord& record : merged.input().truth) {
    if (record.id == merged.record("a")) record.revision = 1;
  }
  merged.run();
  EXPECT_EQ(merged.truth(), "F=x(b)");
  EXPECT_EQ(merged.changes(), "-a");
}

const Row kMoving[] = {
    {"moved on the client", {"F(a) G()", "F(a) G()", "F() G(a)"}, "F() G(a)", ""},
    {"moved in the truth", {"F(a) G()", "F() G(a)", "F(a) G()"}, "F() G(a)", "~a"},
    {"moved on both sides: the client's place",
     {"F(a) G() H()", "F() G(a) H()", "F() G() H(a)"},
     "F() G() H(a)",
     "",
     "parent of a: client H, truth G, client wins"},
    {"moved on both sides, to folders of one name",
     {"F(a) G=x() H=x()", "F() G=x(a) H=x()", "F() G=x() H=x(a)"},
     "F() G=x() H=x(a)",
     "",
     "parent of a: client x (4), truth x (3), client wins"},
    {"in a refresh the truth's place",
     {"F(a) G() H()", "F() G(a) H()", "F() G() H(a)", true},
     "F() G(a) H()",
     "~a",
     "parent of a: client H, truth G, truth wins"},
    {"moved to one place by both sides is no conflict", {"F(a) G()", "F() G(a)", "F() G(a)"}, "F() G(a)", ""},
    {"a move and a change of title both arrive", {"F(a) G()", "F() G(a)", "F(a=x) G()"}, "F() G(a=x)", "~a"},
    {"a move that would close a cycle is undone on the client",
     {"A() B()", "B(A())", "A(B())"},
     "B(A())",
     "~B ~A",
     "parent of B: client A, truth Root, truth wins"},
    {"a cycle of three: the client's moves are undone",
     {"A() B() C()", "B(A()) C()", "A(C(B()))"},
     "B(A()) C()",
     "~C ~B ~A",
     "parent of B: client C, truth Root, truth wins; parent of C: client A, truth Root, truth wins"},
    {"what is below an undone move keeps its place",
     {"A() B(x)", "B(A() x)", "A(B(x y))"},
     "B(A() x y)",
     "~B ~A",
     "parent of B: client A, truth Root, truth wins"},
    {"parent and child change places on one side", {"A(B(c))", "B(A(c))", "A(B(c))"}, "B(A(c))", "~B ~A ~c"},
    {"a child moves out of a folder that is deleted, into one that is new",
     {"F(a b)", "N(a)", "F(a b)"},
     "N(a)",
     "-F +N -b ~a"},
    {"a folder moves out of a deleted folder", {"F(G(a))", "G(a)", "F(G(a))"}, "G(a)", "-F ~G"},
};
INSTANTIATE_TEST_SUITE_P(Moving, MergeTest, ::testing::ValuesIn(kMoving));

const Row kOrder[] = {
    {"a reorder on the client arrives exactly", {"a b c d", "a b c d", "d b a c"}, "d b a c", ""},
    {"a reorder in the truth arrives exactly", {"a b c d", "d b a c", "a b c d"}, "d b a c", "~a ~d"},
    {"the same reorder on both sides is no conflict", {"a b c", "c a b", "c a b"}, "c a b", ""},
    {"reorders of different siblings both arrive",
     {"a b c d e f", "b c a d e f", "a b c d f e"},
     "b c a d f e",
     "~a"},
    {"both sides moved one sibling: the client's order",
     {"a b c d", "b c a d", "b c d a"},
     "b c d a",
     "",
     "order of a: client after d, truth before d, client wins"},
    {"in a refresh the truth's order",
     {"a b c d", "b c a d", "b c d a", true},
     "b c a d",
     "~d",
     "order of a: client after d, truth before d, truth wins"},
    {"in a refresh a reorder of the client alone survives", {"a b c", "a b c", "c a b", true}, "c a b", ""},
    {"what each side inserted at one place stays together",
     {"a b", "a s t b", "a x y b"},
     "a s t x y b",
     "+t +s"},
    {"what each side inserted at the front stays together", {"a", "s t a", "x y a"}, "s t x y a", "+t +s"},
    {"an insertion follows its neighbour that the other side moved",
     {"a b c d", "a n b c d", "b c d a"},
     "b c d a n",
     "+n"},
    {"a client's insertion follows its neighbour that the truth moved",
     {"a b c d", "b c d a", "a n b c d"},
     "b c d a n",
     "~n ~a"},
    {"one moved to the end there, another to the front here, and an insertion on each side",
     {"a b c d", "a c x d b", "d a b c y"},
     "d a c x b y",
     "~b +x"},
    {"a first merge takes the truth's order",
     {"", "a b c", "c a b", true},
     "a b c",
     "~c",
     "order of c: client before a, truth after a, truth wins"},
    {"special folders stand first, the bar before the menu",
     {"", "m=BookmarksMenu!() a", "b=BookmarksBar!() x", true},
     "b=BookmarksBar!() m=BookmarksMenu!() a x",
     "+m +a"},
};
INSTANTIATE_TEST_SUITE_P(Order, MergeTest, ::testing::ValuesIn(kOrder));

}  // namespace
}  // namespace corvane::loomer::test
