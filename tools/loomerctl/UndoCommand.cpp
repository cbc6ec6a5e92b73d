// `undo`.

#include <charconv>
#include <optional>
#include <utility>

#include "CorvaneSyncClient/platform/loomer/edit/Undo.h"
#include "CorvaneSyncClient/platform/system/Messages.h"
#include "tools/loomerctl/CommandList.h"
#include "tools/loomerctl/Progress.h"
#include "tools/loomerctl/Text.h"
#include "tools/loomerctl/UserStore.h"

namespace corvane::loomerctl {

namespace {

using namespace loomer;

std::int64_t sessionNumber(const std::string& text) {
  std::int64_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error == std::errc() && end == text.data() + text.size()) return number;
  throw Refused{tr("\"%1\" is no session's number. `loomerctl sessions` shows the numbers.", text)};
}

// Raises Refused for a session that is not in the log or changed no agreed bookmark.
void checkUndoable(TruthStore& store, std::int64_t number) {
  const auto session = SessionLog(store).session(number);
  if (SessionLog(store).isPruned(number)) {
    throw Refused{
        tr("Session %1 is too old to be undone: the log keeps the last 90 days or 1,000 sessions, whichever "
           "is more.",
           std::to_string(number))};
  }
  if (!session) {
    throw Refused{
        tr("The log holds no session %1. `loomerctl sessions` shows the numbers.", std::to_string(number))};
  }
  if (session->changed == 0) {
    throw Refused{tr("There is nothing to undo: session %1 changed none of the agreed bookmarks.",
                     std::to_string(number))};
  }
}

void printNotes(Output& out, const UndoResult& result) {
  for (const UndoNote& note : result.notes) {
    out.write(tr(note.what, '#' + std::to_string(note.record) + ' ' + quoted(note.name)) + '\n');
  }
}

}  // namespace

Status undoSession(Invocation& run) {
  const std::int64_t number = sessionNumber(run.options.argument);
  const auto store = openStore();
  checkUndoable(*store, number);
  std::optional<Progress> progress(std::in_place, run.err);
  progress->say(tr("Undoing session %1", std::to_string(number)));
  const UndoResult result =
      loomer::undoSession(*store, "loomerctl undo " + std::to_string(number), number, run.options.force);
  progress.reset();
  printNotes(run.out, result);
  if (!result.session) {
    const std::string name = std::to_string(number);
    throw Refused{
        result.notes.empty()
            ? tr("There is nothing left to undo of session %1.", name)
            : tr("There is nothing left to undo of session %1: what it changed was changed again since.",
                 name)};
  }
  run.out.write(
      counted(result.changed,
              "Session %2 is undone: %1 record brought back to what it was before, as session %3.",
              "Session %2 is undone: %1 records brought back to what they were before, as session %3.",
              std::to_string(number), std::to_string(*result.session)) +
      ' ' + tr("Each client follows at its next session.") + '\n');
  return statusFine;
}

}  // namespace corvane::loomerctl
