#include "tools/loomerctl/Invocation.h"

#include <algorithm>
#include <charconv>
#include <cstring>
#include <new>

#include "CorvaneSyncClient/platform/foundation/plist/PropertyList.h"
#include "CorvaneSyncClient/platform/loomer/store/Database.h"
#include "CorvaneSyncClient/platform/system/Messages.h"
#include "CorvaneSyncClient/session/SyncService.h"
#include "tools/loomerctl/CommandList.h"
#include "tools/loomerctl/Pager.h"
#include "tools/loomerctl/Table.h"
#include "tools/loomerctl/Text.h"
#include "tools/loomerctl/Version.h"

namespace corvane::loomerctl {

namespace {

enum Option : unsigned {
  json = 1,
  session = 2,
  record = 4,
  limit = 8,
  force = 16,
  words = 32,
  qr = 64,
  remove = 128,
  unattended = 256,
  dryRun = 512,
  paged = 1024  // no option of the user's: the output may be long
};

struct Command {
  const char* name;  // one word, or two: a group and what to do in it
  const char*
      argument;  // what it must be given, or may be given where it stands in brackets; empty for nothing
  unsigned options;
  TextKey summary;
  TextKey help;  // what the summary leaves open
  Status (*run)(Invocation&);
};

constexpr Command kCommands[] = {
    {"status", "", json, TextKey("whether all is well, and what needs you"),
     TextKey("When each client was tried and synced last, with what outcome; how it goes with the online "
             "service and what waits for it; what needs you, with the commands to go on; warnings. Asks "
             "nobody and changes nothing. Exits 0 only if all is well."),
     showStatus},
    {"watch", "", 0, TextKey("follows what `status` shows"),
     TextKey(
         "On a terminal the status, drawn anew at each change; elsewhere a line for each run that ends, and "
         "for each thing that needs you when it comes and when it is over. Waits without costing anything. "
         "Ctrl-C ends it."),
     watchSyncs},
    {"diff", "CLIENT", json | paged, TextKey("how a client's file differs"),
     TextKey("Marks with + what the file alone holds, with - what it lacks, with * what says something else, "
             "and with > what lies elsewhere; behind the arrow stands what is in the file. Changes nothing. "
             "Exits 0 if nothing differs, 1 if something does, 2 if the file cannot be compared."),
     showDiff},
    {"clients", "", json, TextKey("the registered clients"),
     TextKey("One line for each client: what it holds, when it synced last, and what its next session waits "
             "for."),
     showClients},
    {"tree", "", json | paged | record, TextKey("the agreed bookmarks"),
     TextKey("Shows folders before their contents, everything in its order, each with its number. With "
             "--record, one folder alone. As JSON, a flat list in the same order with depth and parent."),
     showTree},
    {"sessions", "", json | paged | limit, TextKey("the sessions with changes, newest first"),
     TextKey("Quiet sessions are counted with their clients and not listed."), showSessions},
    {"changes", "", json | paged | session | record | limit,
     TextKey("what the sessions changed, newest first"),
     TextKey("Shows each attribute before and after, and the values that lost a conflict. --limit counts "
             "records."),
     showChanges},
    {"show", "RECORD", json | paged, TextKey("one record: its place, holders and history"),
     TextKey(
         "RECORD is a number from `tree` or `changes`. Deleted records are shown while they are remembered."),
     showRecord},
    {"check", "", json, TextKey("checks the whole store"),
     TextKey("Checks that the bookmarks form one tree, that the clients' bases and the logs fit it, and "
             "SQLite's own integrity. Says what to do about each finding. Changes nothing. Exits 3 when it "
             "finds something."),
     checkStore},
    {"plan", "CLIENT", json | paged, TextKey("what a client's next session would deliver"),
     TextKey(
         "The changes that the client gets if it has none of its own. If its last session was refused "
         "because it would have deleted too much, what that session would have deleted. Changes nothing."),
     showPlan},
    {"approve", "CLIENT", 0, TextKey("lets a client's refused plan pass once"),
     TextKey("For a session that was refused because the client lacks most of the bookmarks, when they are "
             "meant to go. Holds for exactly the plan that `plan CLIENT` shows, and only once."),
     approvePlan},
    {"sync", "[CLIENT]...", unattended, TextKey("syncs clients with one another"),
     TextKey(
         "Runs `corvanetool --sync` for each, and again for those for which that has brought news. Without "
         "CLIENT, for those that `enable` has switched on or, where there are none, for all that are "
         "registered. --unattended is for whatever starts it by itself: it waits until no bookmarks file "
         "has been written for two seconds."),
     syncClients},
    {"enable", "[CLIENT]...", 0, TextKey("syncs by itself from now on"),
     TextKey(
         "Switches systemd units on: CLIENT, or without one every registered client, is synced when its "
         "bookmarks change and every 15 minutes. Where no systemd manager runs for the user, says what to "
         "do instead."),
     enableClients},
    {"disable", "[CLIENT]...", 0, TextKey("no longer syncs by itself"),
     TextKey("Switches the units of CLIENT off, or without one all. Leaves nothing of them behind."),
     disableClients},
    {"undo", "SESSION", force, TextKey("undoes what a session changed or deleted"),
     TextKey("SESSION is a number from `sessions`. The outcome travels to every client at its next session, "
             "and can itself be undone. What a later session changed again stays, unless --force is given."),
     undoSession},
    {"restore", "CLIENT", 0, TextKey("lets a client have back what it lacks"),
     TextKey("At the client's next session. Nothing is deleted because the client lacks it; what it added or "
             "changed arrives as usual, and what else its file holds stays as it is. For a session that was "
             "refused because the client lacks most of the bookmarks, when they are not meant to go."),
     restoreClient},
    {"reset", "CLIENT", 0, TextKey("gives a client everything anew"),
     TextKey(
         "At its next session the client deletes everything and is given the agreed bookmarks. What it "
         "changed since its last session is lost, and so is whatever its file holds that is not synced: "
         "entries hidden from sync, and what other programs stored with an entry. `restore` keeps all that."),
     resetClient},
    {"export", "FILE", 0, TextKey("writes a bookmarks file that browsers read"),
     TextKey("An HTML file with everything in its order, replacing FILE. \"-\" is standard output."),
     exportFile},
    {"import", "FILE", dryRun, TextKey("adds what a browser's bookmarks file holds"),
     TextKey(
         "FILE is an exported HTML file or one of a browser's profile; loomerctl(1) lists them. Adds the "
         "folders and bookmarks that are not there already (same folder, title and address); they travel to "
         "every client. What the "
         "engine has no place for, such as tags and separators, is left out and counted; --dry-run lists it. "
         "Makes a store if there is none. \"-\" is standard input. `undo` takes an import back."),
     importFile},
    {"report", "FILE", 0, TextKey("writes a page that shows it all in a browser"),
     TextKey(
         "One HTML file that needs nothing else: the clients, the sessions over time, the last changes, what "
         "lost a conflict, what is worth tidying, and all bookmarks, to be searched. Readable by its owner "
         "alone; replaces FILE. \"-\" is standard output."),
     writeReportFile},
    {"browser install", "[BROWSER]", 0, TextKey("lets Chromium and Firefox sync, too"),
     TextKey(
         "Has the browser find the program that the extension speaks to, for this user, and says how to load "
         "the extension where it is not installed for all users. BROWSER is chromium or firefox; without it, "
         "both."),
     installBrowser},
    {"browser status", "[BROWSER]", 0, TextKey("what is in place for Chromium and Firefox"),
     TextKey(
         "Says what is in place, what is missing, and what to do. Changes nothing. Exits 0 if the browser "
         "finds the program, 1 if not."),
     showBrowsers},
    {"browser remove", "[BROWSER]", 0, TextKey("takes back what `browser install` did"),
     TextKey(
         "Leaves browsers and bookmarks as they are. What the Debian package installed for all users goes "
         "with the package."),
     removeBrowser},
    {"account set", "PLACE", 0, TextKey("shares the bookmarks through a place"),
     TextKey("PLACE is a directory, such as a mounted share; a WebDAV folder (https://USER@HOST/FOLDER); a "
             "bucket (s3://BUCKET/PREFIX?region=REGION or ?endpoint=https://HOST); a corvane-hub "
             "(hub://HOST). Passwords and keys are asked for. What is kept there is sealed with a key that "
             "is made now and that only this computer has: `account invite` lets others join. Tries the "
             "place before it sets anything. \"-\" reads the address from standard input, and whatever else "
             "is asked for from the lines after it."),
     setAccount},
    {"account invite", "", words | qr, TextKey("prints what lets another computer join"),
     TextKey("One line that `account join` reads on the other computer. Whoever sees it can read and change "
             "the bookmarks. It does not lose its power until `account new-key` or `account remove-computer` "
             "changes the key."),
     inviteComputer},
    {"account join", "[PLACE]", 0, TextKey("joins the account of another computer"),
     TextKey("Asks for the invitation, in either form, or reads it from standard input; with PLACE, for the "
             "account's passphrase instead. At a hub, this computer's own token is asked for too."),
     joinAccount},
    {"account passphrase", "", remove, TextKey("sets a passphrase that lets computers join"),
     TextKey("Keeps the account's key at the place, sealed under a passphrase of at least 12 characters. "
             "Whoever can read the place may guess at it for as long as he likes. Replaces an earlier "
             "passphrase; --remove sets none."),
     setPassphrase},
    {"account show", "", json, TextKey("the account, and whether the service answers"),
     TextKey(
         "Shows no password. Says when the service answered last, and whether bookmarks are synced with it."),
     showAccount},
    {"account test", "", 0, TextKey("asks the service and says what is wrong"),
     TextKey("Exits 0 if the service answers and can be used, 1 if not."), testAccount},
    {"account computers", "", json, TextKey("the computers of the account"),
     TextKey("Each with its name, its identifier and when it was last seen, to the week."), showComputers},
    {"account remove-computer", "COMPUTER", 0, TextKey("takes a computer out of the account"),
     TextKey("COMPUTER is a name or an identifier from `account computers`. Makes a new key, which the other "
             "computers get when they sync next; that one does not, and neither does anyone with an earlier "
             "invitation. What it has got it keeps."),
     removeComputer},
    {"account new-key", "", 0, TextKey("changes the account's key"),
     TextKey("For when an invitation or the passphrase may have become known. The other computers get the "
             "key when they sync next; earlier invitations and the passphrase let nobody in any more. What "
             "was at the place until now can still be read with the earlier key."),
     changeKey},
    {"account remove", "", 0, TextKey("forgets the account on this computer"),
     TextKey("What the engine recorded about the exchange with the service goes too. The bookmarks stay, "
             "here and at the service."),
     removeAccount},
};

struct OptionForm {
  Option option;
  const char* name;
  const char* value;  // null for a switch
  TextKey summary;
};

constexpr OptionForm kOptions[] = {
    {json, "--json", nullptr, TextKey("writes JSON, for programs")},
    {session, "--session", "N", TextKey("only that session")},
    {record, "--record", "R", TextKey("only that record")},
    {limit, "--limit", "N", TextKey("at most this many")},
    {force, "--force", nullptr, TextKey("also what was changed again since")},
    {words, "--words", nullptr, TextKey("as words, for reading out and typing")},
    {qr, "--qr", nullptr, TextKey("as a QR code, for a camera")},
    {remove, "--remove", nullptr, TextKey("removes the passphrase")},
    {unattended, "--unattended", nullptr, TextKey("waits until the browser is quiet")},
    {dryRun, "--dry-run", nullptr, TextKey("lists what it would add and leave out, and changes nothing")},
};

constexpr TextKey kStatuses = TextKey(
    "Exit status: 0 fine, 1 nothing found, refused or not well, 2 wrong usage, 3 the store is damaged.");

// A sentence.
class UsageError : public PlatformException {
 public:
  explicit UsageError(Message reason) : PlatformException("LoomerctlUsageError", std::move(reason)) {}
};

bool takesSeveral(const Command& command) { return std::string_view(command.argument).ends_with("..."); }

std::size_t wordsOf(const Command& command) { return std::strchr(command.name, ' ') ? 2 : 1; }

// What a command was called once; scripts may still call it so.
constexpr std::pair<std::string_view, std::string_view> kFormerNames[] = {{"giveback", "restore"}};

// The command that the first arguments name; null for none.
const Command* commandOf(const std::vector<std::string>& arguments) {
  std::string_view one = arguments[0];
  for (const auto& [former, name] : kFormerNames) {
    if (one == former) one = name;
  }
  const std::string two = arguments.size() > 1 ? arguments[0] + ' ' + arguments[1] : std::string();
  for (const Command& each : kCommands) {
    if ((wordsOf(each) == 1 ? one : two) == each.name) return &each;
  }
  return nullptr;
}

// The argument as a message shows it: an address may hold a password.
std::string shown(const std::string& argument) {
  return argument.find("://") == std::string::npos ? '"' + printable(argument) + '"' : tr("the address");
}

// Says why the arguments name no command.
std::string unknownCommand(const std::string& name) {
  std::string known;
  for (const Command& each : kCommands) {
    const std::string_view whole = each.name;
    if (!whole.starts_with(name + ' ')) continue;
    known += (known.empty() ? "" : ", ") + std::string(whole.substr(name.size() + 1));
  }
  if (known.empty()) return tr("there is no command %1.", shown(name));
  return tr("%1 wants one of these after it: %2.", name, known);
}

std::string usageOf(const Command& command) {
  std::string usage = std::string("loomerctl ") + command.name;
  for (const OptionForm& each : kOptions) {
    if (!(command.options & each.option)) continue;
    usage += std::string(" [") + each.name + (each.value ? std::string(" ") + each.value : "") + ']';
  }
  if (*command.argument) usage += std::string(" ") + command.argument;
  return usage;
}

void writeOptions(Output& out, unsigned options) {
  Table table(out, {{tr("Options")}, {""}});
  for (const OptionForm& each : kOptions) {
    if (!(options & each.option)) continue;
    table.add({std::string("  ") + each.name + (each.value ? std::string(" ") + each.value : ""),
               tr(each.summary)});
  }
  table.add({"  --help", tr("this text")});
  table.finish();
}

void writeHelp(Output& out) {
  const std::string secondLine(displayWidth(tr("usage: %1", "")), ' ');
  out.write(
      wrapped(tr("Shows and repairs what the sync engine agreed on with the clients of your bookmarks.")));
  out.write('\n' + tr("usage: %1", "loomerctl COMMAND [OPTION]... [ARGUMENT]") + '\n');
  out.write(secondLine + "loomerctl --version\n\n");
  Table table(out, {{tr("Commands")}, {""}});
  for (const Command& each : kCommands) {
    const std::string argument = *each.argument ? std::string(" ") + each.argument : "";
    table.add({std::string("  ") + each.name + argument, tr(each.summary)});
  }
  table.finish();
  out.write('\n' +
            wrapped(tr(
                "`loomerctl COMMAND --help` says more about a command; loomerctl(1) describes everything.")));
  out.write(wrapped(tr(kStatuses)));
}

void writeHelp(const Command& command, Output& out) {
  out.write(tr("usage: %1", usageOf(command)) + "\n\n" + wrapped(tr(command.help)) + '\n');
  writeOptions(out, command.options);
  out.write('\n' + wrapped(tr(kStatuses)));
}

std::int64_t numberFrom(const std::string& name, const std::string& text, std::int64_t least) {
  std::int64_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error == std::errc() && end == text.data() + text.size() && number >= least) return number;
  throw UsageError{
      tr("%1 wants a number of at least %2, not \"%3\".", name, std::to_string(least), printable(text))};
}

// One run's arguments, as they are read.
class Arguments {
 public:
  Arguments(const Command& command, const std::vector<std::string>& arguments)
      : _command(command), _arguments(arguments) {}

  Options read() {
    bool optionsEnded = false;
    for (_at = wordsOf(_command); _at < _arguments.size(); ++_at) {
      const std::string& argument = _arguments[_at];
      const bool isOption = !optionsEnded && argument.size() > 1 && argument[0] == '-';
      if (isOption && argument == "--") {
        optionsEnded = true;
      } else if (isOption) {
        readOption(argument);
      } else {
        takeArgument(argument);
      }
    }
    if (*_command.argument && *_command.argument != '[' && !_given) {
      throw UsageError{tr("%1 wants a %2.", _command.name, _command.argument)};
    }
    return _options;
  }

 private:
  void readOption(const std::string& argument) {
    const std::size_t equals = argument.find('=');
    const std::string name = argument.substr(0, equals);
    for (const OptionForm& each : kOptions) {
      if (!(_command.options & each.option) || name != each.name) continue;
      if (!each.value && equals != std::string::npos) throw UsageError{tr("%1 takes no value.", name)};
      return enter(each, equals);
    }
    throw UsageError{tr("%1 has no option \"%2\".", _command.name, printable(name))};
  }

  void enter(const OptionForm& form, std::size_t equals) {
    if (form.option == json) _options.json = true;
    if (form.option == force) _options.force = true;
    if (form.option == words) _options.words = true;
    if (form.option == qr) _options.qr = true;
    if (form.option == remove) _options.remove = true;
    if (form.option == unattended) _options.unattended = true;
    if (form.option == dryRun) _options.dryRun = true;
    if (!form.value) return;
    std::string value;
    if (equals != std::string::npos) {
      value = _arguments[_at].substr(equals + 1);
    } else if (++_at < _arguments.size()) {
      value = _arguments[_at];
    } else {
      throw UsageError{tr("%1 wants a number after it.", form.name)};
    }
    const std::int64_t number = numberFrom(form.name, value, form.option == record ? 0 : 1);
    if (form.option == session) _options.session = number;
    if (form.option == record) _options.record = number;
    if (form.option == limit) _options.limit = number;
  }

  void takeArgument(const std::string& argument) {
    if (takesSeveral(_command)) return _options.clients.push_back(argument);
    if (!*_command.argument || _given) {
      throw UsageError{tr("%1 does not know what to do with %2.", _command.name, shown(argument))};
    }
    _given = true;
    _options.argument = argument;
  }

  const Command& _command;
  const std::vector<std::string>& _arguments;
  std::size_t _at = 0;
  bool _given = false;
  Options _options;
};

bool asksForHelp(const std::vector<std::string>& arguments) {
  for (const std::string& each : arguments) {
    if (each == "--") return false;
    if (each == "--help" || each == "-h") return true;
  }
  return false;
}

// Whether the clients' next sessions bring what the command has done.
bool isForClients(const Command& command) {
  static constexpr std::string_view kNames[] = {"approve", "import", "reset", "restore", "undo"};
  return std::find(std::begin(kNames), std::end(kNames), command.name) != std::end(kNames);
}

// `forPrograms` is filled where programs read what the command says, its failure included.
Status dispatch(const std::vector<std::string>& arguments, Output& out, Output& err,
                std::optional<EnglishScope>& forPrograms) {
  if (arguments.empty()) {
    writeHelp(err);
    return statusUsage;
  }
  const Command* command = commandOf(arguments);
  if (asksForHelp(arguments)) {
    if (command) {
      writeHelp(*command, out);
    } else {
      writeHelp(out);
    }
    return statusFine;
  }
  if (arguments == std::vector<std::string>{"--version"}) {
    out.write(std::string("loomerctl ") + kVersion + '\n');
    return statusFine;
  }
  if (!command) throw UsageError{unknownCommand(arguments[0])};
  Invocation run{Arguments(*command, arguments).read(), out, err};
  if (run.options.json) forPrograms.emplace();
  std::optional<Pager> pager;
  if (command->options & paged && !run.options.json) pager.emplace(out);
  const Status status = command->run(run);
  if (status == statusFine && isForClients(*command)) syncFilesSoon();
  return status;
}

// The command line that shows how to use what the arguments name.
std::string helpFor(const std::vector<std::string>& arguments) {
  const Command* const command = commandOf(arguments);
  return std::string("loomerctl ") + (command ? std::string(command->name) + ' ' : "") + "--help";
}

Status complain(Output& err, const std::string& reason, Status status) {
  writeMessage(err, reason);
  return status;
}

Status runAndComplain(const std::vector<std::string>& arguments, Output& out, Output& err) {
  std::optional<EnglishScope> forPrograms;
  try {
    const Status status = dispatch(arguments, out, err, forPrograms);
    out.flush();
    return status;
  } catch (const OutputClosed&) {
    return statusFine;  // the reader has seen enough
  } catch (const UsageError& error) {
    return complain(err, tr(error.message()) + ' ' + tr("`%1` shows how it is used.", helpFor(arguments)),
                    statusUsage);
  } catch (const loomer::DamagedStoreException& exception) {
    return complain(err, tr(exception.message()), statusDamaged);
  } catch (const PropertyListException& exception) {
    return complain(err, tr("A stored value cannot be read: %1. Run `loomerctl check`.", exception.message()),
                    statusDamaged);
  } catch (const PlatformException& exception) {
    return complain(err, tr(exception.message()), statusRefused);
  } catch (const std::bad_alloc&) {
    return complain(err, tr("There is not enough memory."), statusRefused);
  }
}

// After a failure: writes what was found until then, and the message. If neither can be written, the exit
// status says enough.
void flushQuietly(Output& output) {
  try {
    output.flush();
  } catch (const PlatformException&) {
  }
}

}  // namespace

Status runCommandLine(const std::vector<std::string>& arguments, Output& out, Output& err) {
  const Status status = runAndComplain(arguments, out, err);
  flushQuietly(out);
  flushQuietly(err);
  return status;
}

}  // namespace corvane::loomerctl
