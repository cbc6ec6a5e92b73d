// `sessions` and `changes`.

#include <limits>

#include "CorvaneSyncClient/platform/system/Messages.h"
#include "tools/loomerctl/ChangeText.h"
#include "tools/loomerctl/CommandList.h"
#include "tools/loomerctl/Describe.h"
#include "tools/loomerctl/StatusText.h"
#include "tools/loomerctl/Table.h"
#include "tools/loomerctl/Text.h"
#include "tools/loomerctl/UserStore.h"

namespace corvane::loomerctl {

namespace {

using namespace loomer;

std::int64_t limitOf(const Options& options) {
  return options.limit.value_or(std::numeric_limits<std::int64_t>::max());
}

void writeSession(JsonWriter& json, const SessionEntry& session, std::size_t conflicts) {
  json.beginObject();
  json.member("session", session.id);
  json.member("client", session.client);
  json.member("began", session.began);
  json.member("ended", session.ended);
  json.member("kind", kindName(session.mode));
  json.member("revision", session.revision);
  json.member("taken", session.taken);
  json.member("changed", session.changed);
  json.member("handedDown", session.delivered);
  json.member("refused", session.refused);
  json.member("conflicts", conflicts);
  json.endObject();
}

}  // namespace

Status showSessions(Invocation& run) {
  const auto store = openStoreToRead();
  SessionLog log(*store);
  std::int64_t left = limitOf(run.options);
  if (run.options.json) {
    JsonWriter json(run.out);
    json.beginArray();
    log.newestFirst([&](const SessionEntry& session) {
      writeSession(json, session, log.lossCount(session.id));
      return --left > 0;
    });
    json.endArray();
    json.finish();
    return statusFine;
  }
  Table table(run.out, {{tr("SESSION"), true},
                        {tr("BEGAN")},
                        {tr("BY")},
                        {tr("KIND")},
                        {tr("PUSHED"), true},
                        {tr("PULLED"), true},
                        {tr("CONFLICTS"), true},
                        {tr("REFUSED"), true}});
  bool any = false;
  log.newestFirst([&](const SessionEntry& session) {
    any = true;
    const PushedAndPulled exchange = exchangeOf(session);
    table.add({std::to_string(session.id), timeText(session.began), printable(session.client.view()),
               kindText(session.mode), grouped(exchange.pushed), grouped(exchange.pulled),
               grouped(log.lossCount(session.id)), grouped(session.refused)});
    return --left > 0;
  });
  table.finish();
  if (!any) run.out.write(tr("No session changed anything yet.") + '\n');
  return statusFine;
}

namespace {

// Prints changes, for people or for programs.
class ChangePrinter {
 public:
  virtual ~ChangePrinter() = default;
  virtual void begin() {}
  // Whether a long list of additions is counted and not listed.
  virtual bool folds() const { return false; }
  virtual void additions(const SessionEntry&, const RecordCounts&) {}
  virtual void change(const SessionEntry& session, const LoggedChange& change) = 0;
  virtual void loss(const SessionEntry& session, const Loss& loss) = 0;
  virtual void end() {}
};

class TextPrinter : public ChangePrinter {
 public:
  TextPrinter(Output& out, RecordTable& records, bool folds) : _out(out), _records(records), _folds(folds) {}

  bool folds() const override { return _folds; }
  void additions(const SessionEntry& session, const RecordCounts& counts) override {
    head(session);
    _out.write("  + " +
                   tr("%1 and %2 added; `loomerctl changes --session %3` lists them",
                      counted(counts.bookmarks, "%1 bookmark", "%1 bookmarks"),
                      counted(counts.folders, "%1 folder", "%1 folders"), std::to_string(session.id)) +
                   '\n',
               Style::added);
  }
  void change(const SessionEntry& session, const LoggedChange& change) override {
    head(session);
    printChange(_out, _records, change);
  }
  void loss(const SessionEntry& session, const Loss& loss) override {
    head(session);
    printLoss(_out, loss);
  }

 private:
  void head(const SessionEntry& session) {
    if (session.id == _session) return;
    if (_session) _out.write("\n");
    _session = session.id;
    _out.write(tr("Session %1", std::to_string(session.id)) + "  " + timeText(session.began) + "  " +
                   printable(session.client.view()) + " (" + kindText(session.mode) + ")\n",
               Style::heading);
  }

  Output& _out;
  RecordTable& _records;
  bool _folds;
  std::int64_t _session = 0;
};

class JsonPrinter : public ChangePrinter {
 public:
  explicit JsonPrinter(Output& out) : _json(out) {}

  void begin() override { _json.beginArray(); }
  void change(const SessionEntry& session, const LoggedChange& change) override {
    head(session, change.record, change.before ? (change.after ? "changed" : "deleted") : "added");
    _json.member("kind", entityName(change.entity));
    writeState(_json, "before", change.entity, change.before);
    writeState(_json, "after", change.entity, change.after);
    _json.endObject();
  }
  void loss(const SessionEntry& session, const Loss& loss) override {
    head(session, loss.record, "conflict");
    _json.member("attribute", loss.attribute);
    _json.member("clientValue", loss.clientValue);
    _json.member("truthValue", loss.truthValue);
    _json.member("clientWon", loss.clientWon);
    _json.endObject();
  }
  void end() override {
    _json.endArray();
    _json.finish();
  }

 private:
  void head(const SessionEntry& session, RecordId record, const char* type) {
    _json.beginObject();
    _json.member("session", session.id);
    _json.member("began", session.began);
    _json.member("client", session.client);
    _json.member("record", record);
    _json.member("type", type);
  }

  JsonWriter _json;
};

// A first session adds all that the client holds.
constexpr std::size_t kMostAdditions = 10;

// Prints at most `left` of one session's changes and losses; answers how many may still follow.
std::int64_t printSession(SessionLog& log, const SessionEntry& session, const Options& options,
                          std::int64_t left, ChangePrinter& to) {
  const auto added = to.folds() ? log.additionsAlone(session.id) : std::nullopt;
  if (added && added->folders + added->bookmarks > kMostAdditions) {
    to.additions(session, *added);
    --left;
  } else {
    log.changesOf(session.id, options.record, [&](const LoggedChange& change) {
      to.change(session, change);
      return --left > 0;
    });
  }
  if (left == 0) return 0;
  for (const Loss& loss : log.losses(session.id)) {
    if (options.record && loss.record != *options.record) continue;
    to.loss(session, loss);
    if (--left == 0) break;
  }
  return left;
}

}  // namespace

Status showChanges(Invocation& run) {
  const auto store = openStoreToRead();
  SessionLog log(*store);
  RecordTable records(*store);
  // Who asks for a session or a record asks for the list.
  TextPrinter text(run.out, records, !run.options.session && !run.options.record);
  JsonPrinter json(run.out);
  ChangePrinter& printer = run.options.json ? static_cast<ChangePrinter&>(json) : text;
  const std::int64_t limit = limitOf(run.options);
  std::int64_t left = limit;
  const auto print = [&](const SessionEntry& session) {
    left = printSession(log, session, run.options, left, printer);
    return left > 0;
  };
  printer.begin();
  if (!run.options.session) {
    log.newestFirst(print);
  } else if (const auto session = log.session(*run.options.session)) {
    print(*session);
  }
  printer.end();
  const bool filtered = run.options.session || run.options.record;
  if (left < limit) return statusFine;
  if (filtered) throw Refused{tr("The log holds no such changes.")};
  if (!run.options.json) run.out.write(tr("No session changed anything yet.") + '\n');
  return statusFine;
}

}  // namespace corvane::loomerctl
