#include "tools/corvane-hub/HubCommands.h"

#include <grp.h>
#include <sys/stat.h>
#include <unistd.h>

#include <optional>

#include "CorvaneSyncClient/platform/system/Messages.h"
#include "CorvaneSyncClient/platform/system/files/FileDescriptor.h"
#include "tools/corvane-hub/Accounts.h"
#include "tools/corvane-hub/HubConfiguration.h"
#include "tools/corvane-hub/HubFailure.h"
#include "tools/corvane-hub/HubServer.h"
#include "tools/corvane-hub/ObjectNames.h"
#include "tools/corvane-hub/ServiceLog.h"
#include "tools/corvane-hub/UsageLedger.h"

namespace corvane::hubserver {

namespace {

struct CommandForm {
  const char* form;
  TextKey summary;
};

constexpr CommandForm kForms[] = {
    {"serve", TextKey("answers clients until it is told to end")},
    {"account add NAME [COMPUTER]", TextKey("makes an account and prints the token of its first computer")},
    {"account token NAME COMPUTER",
     TextKey("prints a token for another computer, or for one whose token is revoked")},
    {"account list [NAME]", TextKey("shows the accounts, or one with its computers")},
    {"account quota NAME SIZE", TextKey("how much the account may hold, such as 500 MiB")},
    {"account revoke NAME COMPUTER", TextKey("the computer's token lets nobody in any more")},
    {"account remove NAME", TextKey("deletes the account with everything in it")},
};

std::string usage() {
  constexpr std::size_t kColumn = 32;
  std::string text = tr("usage: %1", "corvane-hub [--config FILE] COMMAND") + "\n\n";
  for (const CommandForm& each : kForms) {
    std::string form = each.form;
    form.resize(kColumn, ' ');
    text += "  " + form + tr(each.summary) + '\n';
  }
  return text + '\n' +
         tr("Names have up to 40 of a-z, 0-9 and \"-\". FILE is /etc/corvane-hub.conf unless said "
            "otherwise.") +
         '\n' + tr("The account commands take effect at once, whether a server runs or not.") + '\n';
}

class UsageError : public HubFailure {
 public:
  using HubFailure::HubFailure;
};

using Arguments = std::vector<std::string>;

void print(const std::string& text) {
  const FileDescriptor out(::dup(STDOUT_FILENO));
  if (const std::error_code error = writeAll(out, text))
    throw HubFailure(tr("nothing can be printed"), error);
}

std::string principal(const std::string& name) {
  if (!isPrincipalName(name)) {
    throw UsageError(tr("\"%1\" is no name: up to 40 of a-z, 0-9 and \"-\", the first no \"-\"", name));
  }
  return name;
}

/// The name of an account that exists.
std::string existing(const Accounts& accounts, const std::string& name) {
  if (!accounts.has(principal(name))) throw HubFailure(tr("there is no account \"%1\"", name));
  return name;
}

std::string tokenFor(Accounts& accounts, const std::string& account, const std::string& computer) {
  const std::optional<std::string> token = accounts.addToken(account, computer);
  if (!token) {
    throw HubFailure(
        tr("the computer \"%1\" has a token; revoke it first, or choose another name", computer));
  }
  return *token + '\n';
}

void add(Accounts& accounts, const HubConfiguration& configuration, const Arguments& names) {
  const std::string account = principal(names[0]);
  const std::string computer = principal(names.size() > 1 ? names[1] : "first");
  if (!accounts.add(account, configuration.quota))
    throw HubFailure(tr("there is an account \"%1\" already", account));
  print(tokenFor(accounts, account, computer));
}

void showOne(const Accounts& accounts, const std::string& account) {
  const std::uint64_t used = UsageLedger(accounts.directoryOf(account)).bytes();
  std::string text =
      account + "  " + tr("%1 of %2", sizeText(used), sizeText(accounts.quota(account))) + '\n';
  for (const AccountComputer& computer : accounts.computers(account)) {
    text += "  " + computer.name + (computer.revoked ? "  " + tr("revoked") : "") + '\n';
  }
  print(text);
}

void show(const Accounts& accounts, const Arguments& names) {
  if (names.empty()) {
    for (const std::string& account : accounts.names()) showOne(accounts, account);
  } else {
    showOne(accounts, existing(accounts, names[0]));
  }
}

void runAccountCommand(Accounts& accounts, const HubConfiguration& configuration, const std::string& command,
                       const Arguments& names) {
  const auto takes = [&](std::size_t least, std::size_t most) {
    return names.size() >= least && names.size() <= most;
  };
  if (command == "add" && takes(1, 2)) {
    add(accounts, configuration, names);
  } else if (command == "token" && takes(2, 2)) {
    print(tokenFor(accounts, existing(accounts, names[0]), principal(names[1])));
  } else if (command == "list" && takes(0, 1)) {
    show(accounts, names);
  } else if (command == "quota" && takes(2, 2)) {
    const std::optional<std::uint64_t> size = parsedSize(names[1]);
    if (!size) throw UsageError(tr("\"%1\" is no size such as 1073741824 or \"500 MiB\"", names[1]));
    accounts.setQuota(existing(accounts, names[0]), *size);
  } else if (command == "revoke" && takes(2, 2)) {
    if (!accounts.revoke(existing(accounts, names[0]), principal(names[1]))) {
      throw HubFailure(tr("the computer \"%1\" has no token that lets it in", names[1]));
    }
  } else if (command == "remove" && takes(1, 1)) {
    accounts.remove(existing(accounts, names[0]));
  } else {
    throw UsageError(tr("there is no such command; `%1` shows them", "corvane-hub --help"));
  }
}

/// Root becomes the user whom the data belongs to: a file of root's would be closed to the server.
void becomeOwner(const std::string& data) {
  struct stat status {};
  if (::geteuid() != 0 || ::stat(data.c_str(), &status) != 0 || status.st_uid == 0) return;
  if (::setgroups(0, nullptr) != 0 || ::setgid(status.st_gid) != 0 || ::setuid(status.st_uid) != 0) {
    throw HubFailure(tr("cannot become the owner of %1", data), lastSystemError());
  }
}

int run(Arguments arguments) {
  std::string file = "/etc/corvane-hub.conf";
  if (arguments.size() >= 2 && arguments[0] == "--config") {
    file = arguments[1];
    arguments.erase(arguments.begin(), arguments.begin() + 2);
  }
  if (arguments.size() == 1 && (arguments[0] == "--help" || arguments[0] == "-h")) {
    print(usage());
    return 0;
  }
  const bool serves = arguments == Arguments{"serve"};
  std::optional<EnglishScope> forTheLog;
  if (serves) forTheLog.emplace();
  if (!serves && (arguments.size() < 2 || arguments[0] != "account")) {
    throw UsageError(
        tr("\"serve\" or \"account …\" is missing; `%1` shows the commands", "corvane-hub --help"));
  }
  const HubConfiguration configuration = configurationIn(file);
  if (serves) {
    HubServer(configuration).run();
    return 0;
  }
  becomeOwner(configuration.data);
  Accounts accounts(configuration.data);
  accounts.prepare();
  runAccountCommand(accounts, configuration, arguments[1], {arguments.begin() + 2, arguments.end()});
  return 0;
}

}  // namespace

int runHubCommand(const std::vector<std::string>& arguments) {
  try {
    return run(arguments);
  } catch (const UsageError& error) {
    logLine(Gravity::error, error.reason());
    return 2;
  } catch (const HubFailure& failure) {
    logLine(Gravity::error, failure.reason());
    return 1;
  }
}

}  // namespace corvane::hubserver
