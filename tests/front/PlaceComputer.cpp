#include "tests/front/PlaceComputer.h"

#include <sys/wait.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "CorvaneSyncClient/platform/foundation/plist/PropertyList.h"
#include "CorvaneSyncClient/platform/pelto/account/Account.h"
#include "tests/fakes/StrictPlatform.h"

namespace corvane {

namespace {

Dictionary leaf(const std::string& title) {
  return {{"WebBookmarkType", "WebBookmarkTypeLeaf"},
          {"WebBookmarkUUID", title + "-uid"},
          {"URLString", "http://" + title + ".example/"},
          {"URIDictionary", Dictionary{{"title", title}}}};
}

std::string titleOf(const Value& child) {
  return child.as<Dictionary>()->dictionary("URIDictionary")->string("title").toString();
}

}  // namespace

int PlaceComputer::ctl(const std::string& arguments, const std::string& input) {
  const std::string in = _installation.home() + "/in", out = _installation.home() + "/out";
  std::ofstream(in, std::ios::binary) << input;
  const std::string command = "HOME='" + _installation.home() + "' " CORVANE_LOOMERCTL " " + arguments +
                              " <'" + in + "' >'" + out + "' 2>'" + out + ".err'";
  const int status = std::system(command.c_str());
  printed = contentsOf(out);
  errors = contentsOf(out + ".err");
  return WEXITSTATUS(status);
}

void PlaceComputer::write(const std::vector<std::string>& titles) {
  Array children;
  for (const std::string& each : titles) children.append(leaf(each));
  writeChildren(children);
}

void PlaceComputer::add(const std::string& title) {
  Array children = this->children();
  children.append(leaf(title));
  writeChildren(children);
}

void PlaceComputer::remove(const std::string& title) {
  Array left;
  for (const Value& each : children()) {
    if (titleOf(each) != title) left.append(each);
  }
  writeChildren(left);
}

std::vector<std::string> PlaceComputer::titles() const {
  std::vector<std::string> titles;
  for (const Value& each : children()) titles.push_back(titleOf(each));
  return titles;
}

std::vector<std::string> PlaceComputer::takeLog() {
  std::vector<std::string> lines = log();
  std::filesystem::remove(_installation.systemLogFile());
  return lines;
}

std::string PlaceComputer::identifier() const {
  const StrictPlatform platform;
  return pelto::readAccount(accountFile())->computer.toString();
}

std::string PlaceComputer::accountFile() const { return pelto::accountPathForHome(_installation.home()); }

Array PlaceComputer::children() const {
  const Value tree = readPropertyList(contentsOf(_installation.bookmarks()));
  const Array* const children = tree.as<Dictionary>()->array("Children");
  return children ? *children : Array();
}

void PlaceComputer::writeChildren(const Array& children) {
  std::filesystem::create_directories(std::filesystem::path(_installation.bookmarks()).parent_path());
  std::ofstream(_installation.bookmarks(), std::ios::binary) << writeBinaryPropertyList(Dictionary{
      {"WebBookmarkFileVersion", 1}, {"WebBookmarkType", "WebBookmarkTypeList"}, {"Children", children}});
}

}  // namespace corvane
