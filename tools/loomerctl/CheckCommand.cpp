// `check`.

#include <map>

#include "CorvaneSyncClient/platform/loomer/store/StoreCheck.h"
#include "CorvaneSyncClient/platform/system/Messages.h"
#include "tools/loomerctl/CommandList.h"
#include "tools/loomerctl/JsonWriter.h"
#include "tools/loomerctl/Progress.h"
#include "tools/loomerctl/Text.h"
#include "tools/loomerctl/UserStore.h"

namespace corvane::loomerctl {

namespace {

using namespace loomer;

// For people; one broken folder can put everything out of reach.
constexpr std::size_t kShownOfEachRule = 20;

CheckBeginsStep telling(Progress& progress) {
  return [&progress](std::size_t step, std::size_t steps) {
    progress.say(tr("Checking the store: step %1 of %2", step, steps));
  };
}

bool writeFindings(JsonWriter& json, TruthStore& store, Progress& progress) {
  bool sound = true;
  json.beginObject();
  json.key("findings");
  json.beginArray();
  findProblems(
      store,
      [&](const StoreFinding& finding) {
        sound = false;
        json.beginObject();
        json.member("rule", finding.rule);
        json.member("problem", finding.problem);
        json.member("remedy", finding.remedy);
        json.endObject();
      },
      telling(progress));
  json.endArray();
  json.member("sound", sound);
  json.endObject();
  json.finish();
  return sound;
}

bool printFindings(Output& out, TruthStore& store, Progress& progress) {
  std::map<std::string, std::size_t> counts;    // by the rule's title
  std::map<std::string, std::string> remedies;  // and the first rule that asks for it, in a stable order
  std::size_t total = 0;
  findProblems(
      store,
      [&](const StoreFinding& finding) {
        ++total;
        if (counts[finding.title]++ < kShownOfEachRule)
          out.write(printable(finding.problem) + '\n', Style::removed);
        remedies.emplace(finding.remedy, finding.title);
      },
      telling(progress));
  for (const auto& [title, count] : counts) {
    if (count <= kShownOfEachRule) continue;
    out.write(tr("… and %1 more of the kind \"%2\"", count - kShownOfEachRule, title) + '\n');
  }
  if (total == 0) {
    out.write(tr("The store is sound.") + '\n');
    return true;
  }
  out.write('\n' + counted(total, "%1 finding. What to do:", "%1 findings. What to do:") + '\n',
            Style::heading);
  for (const auto& [remedy, title] : remedies)
    out.write("- " + tr("%1: %2", title, printable(remedy)) + '\n');
  return false;
}

}  // namespace

Status checkStore(Invocation& run) {
  const auto store = openStoreToRead();
  Progress progress(run.err);
  if (!run.options.json) return printFindings(run.out, *store, progress) ? statusFine : statusDamaged;
  JsonWriter json(run.out);
  return writeFindings(json, *store, progress) ? statusFine : statusDamaged;
}

}  // namespace corvane::loomerctl
