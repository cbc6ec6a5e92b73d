// `undo`.

#include <charconv>

#include "CorvaneSyncClient/platform/loomer/edit/Undo.h"
#include "tools/loomerctl/CommandList.h"
#include "tools/loomerctl/Text.h"
#include "tools/loomerctl/UserStore.h"

namespace corvane::loomerctl {

namespace {

using namespace loomer;

std::int64_t sessionNumber(const std::string& text) {
  std::int64_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error == std::errc() && end == text.data() + text.size()) return number;
  throw Refused{'"' + text + "\" is no session's number. `loomerctl sessions` shows the numbers."};
}

// Raises Refused for a session that is not in the log or changed no agreed bookmark.
void checkUndoable(TruthStore& store, std::int64_t number) {
  const auto session = SessionLog(store).session(number);
  if (SessionLog(store).isPruned(number)) {
    throw Refused{
        "Session " + std::to_string(number) +
        " is too old to be undone: the log keeps the last 90 days or 1,000 sessions, whichever is more."};
  }
  if (!session) {
    throw Refused{"The log holds no session " + std::to_string(number) +
                  ". `loomerctl sessions` shows the numbers."};
  }
  if (session->changed == 0) {
    throw Refused{"There is nothing to undo: session " + std::to_string(number) +
                  " changed none of the agreed bookmarks."};
  }
}

void printNotes(Output& out, const UndoResult& result) {
  for (const UndoNote& note : result.notes) {
    out.write('#' + std::to_string(note.record) + ' ' + quoted(note.name) + ' ' + note.what + '\n');
  }
}

}  // namespace

Status undoSession(Invocation& run) {
  const std::int64_t number = sessionNumber(run.options.argument);
  const auto store = openStore();
  checkUndoable(*store, number);
  const UndoResult result =
      loomer::undoSession(*store, "loomerctl undo " + std::to_string(number), number, run.options.force);
  printNotes(run.out, result);
  if (!result.session) {
    throw Refused{"There is nothing left to undo of session " + std::to_string(number) +
                  (result.notes.empty() ? "." : ": what it changed was changed again since.")};
  }
  run.out.write("Session " + std::to_string(number) +
                " is undone: " + countText(result.changed, "record", "records") +
                " brought back to what they were before, as session " + std::to_string(*result.session) +
                ". Each client follows at its next session.\n");
  return statusFine;
}

}  // namespace corvane::loomerctl
