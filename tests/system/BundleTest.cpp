#include <dlfcn.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "CorvaneSyncClient/platform/foundation/PlatformException.h"
#include "CorvaneSyncClient/platform/system/bundles/LinuxBundleLoader.h"
#include "tests/fakes/FakePlatform.h"
#include "tests/system/ScopedVariable.h"

namespace corvane {
namespace {

// An installation in a fresh directory, with a framework under its own System/Library.
class Bundles : public testing::Test {
 protected:
  Bundles() {
    platform.makeDirectories(tool + "/Contents/Linux");
    platform.makeDirectories(framework);
    std::filesystem::copy_file(CORVANE_TEST_FEED_AGENT, framework + "/libNuvolo.so");
  }
  void write(const std::string& path, const std::string& text) {
    platform.makeDirectories(std::filesystem::path(path).parent_path().string());
    ASSERT_FALSE(platform.realFiles.write(path, text));
  }

  FakePlatform platform;
  std::string root = platform.directory.path();
  std::string tool = root + "/Corvane.app/Contents/CorvaneSyncClient.app";
  std::string framework = root + "/System/Library/PrivateFrameworks/CorvaneTestNuvolo/Nuvolo.framework";
  LinuxBundleLoader loader{platform.files, tool + "/Contents/Linux/corvanetool",
                           preferredLanguages("de_AT.UTF-8")};
};

TEST_F(Bundles, AreFoundAroundTheRunningTool) {
  EXPECT_EQ(loader.ownBundle().path(), tool);
  const std::unique_ptr<Bundle> browser = loader.bundleWithIdentifier("com.keldra.Corvane");
  ASSERT_TRUE(browser);
  EXPECT_EQ(browser->path(), root + "/Corvane.app");
  EXPECT_FALSE(loader.bundleWithIdentifier("com.keldra.Other"));
}

TEST_F(Bundles, AreFewerOutsideAnInstallation) {
  LinuxBundleLoader elsewhere(platform.files, root + "/tests/program", {"en"});
  EXPECT_EQ(elsewhere.ownBundle().path(), root + "/tests");
  EXPECT_FALSE(elsewhere.bundleWithIdentifier("com.keldra.Corvane"));
  LinuxBundleLoader otherName(platform.files, root + "/X.app/Contents/CorvaneSyncClient.app/Contents/Linux/t",
                              {"en"});
  EXPECT_FALSE(otherName.bundleWithIdentifier("com.keldra.Corvane"));
}

TEST_F(Bundles, BelongToTheProgramsBesideThemToo) {
  platform.makeDirectories(root + "/usr/lib/corvane/Corvane.app/Contents/CorvaneSyncClient.app");
  LinuxBundleLoader installed(platform.files, root + "/usr/bin/loomerctl", {"en"});
  EXPECT_EQ(installed.ownBundle().path(),
            root + "/usr/lib/corvane/Corvane.app/Contents/CorvaneSyncClient.app");
  const auto browser = installed.bundleWithIdentifier("com.keldra.Corvane");
  ASSERT_TRUE(browser);
  EXPECT_EQ(browser->path(), root + "/usr/lib/corvane/Corvane.app");
  platform.makeDirectories(root + "/srv/share/corvane/hub");
  LinuxBundleLoader server(platform.files, root + "/srv/bin/corvane-hub", {"en"});
  EXPECT_EQ(server.ownBundle().path(), root + "/srv/share/corvane/hub");
  LinuxBundleLoader alone(platform.files, root + "/opt/bin/loomerctl", {"en"});
  EXPECT_EQ(alone.ownBundle().path(), root + "/opt/bin");
}

TEST_F(Bundles, SystemPathsAreLookedForInTheInstallationToo) {
  const std::string path = "/System/Library/PrivateFrameworks/CorvaneTestNuvolo/Nuvolo.framework";
  const std::unique_ptr<Bundle> bundle = loader.bundleWithPath(path);
  ASSERT_TRUE(bundle);
  EXPECT_EQ(bundle->path(), framework);
  EXPECT_EQ(platform.files.calls[0].path, path) << "at the root first";
  EXPECT_FALSE(loader.bundleWithPath("/System/Library/PrivateFrameworks/CorvaneTestNone.framework"));
  EXPECT_FALSE(loader.bundleWithPath(framework + "/libNuvolo.so")) << "a file is no bundle";
  EXPECT_TRUE(loader.bundleWithPath(framework));
}

TEST_F(Bundles, ClassesAndMethodsAreThoseOfALoadedLibrary) {
  const std::unique_ptr<Bundle> bundle = loader.bundleWithPath(framework);
  ASSERT_TRUE(bundle);
  EXPECT_FALSE(bundle->hasClass("NuvoloClient")) << "not before it is loaded";
  EXPECT_EQ(bundle->classMethod("NuvoloClient", "startSync"), nullptr);
  ASSERT_TRUE(bundle->load());
  ASSERT_TRUE(bundle->load()) << "once is enough";
  for (const char* name : {"NuvoloClient", "NuvoloMarker"}) EXPECT_TRUE(bundle->hasClass(name)) << name;
  for (const char* name : {"Nuvolo", "NuvoloClien", "NuvoloHidden", "NuvoloClient_start", "dlopen", ""}) {
    EXPECT_FALSE(bundle->hasClass(name)) << name;
  }
  EXPECT_EQ(bundle->classMethod("NuvoloClient", "stopSync"), nullptr);
  EXPECT_EQ(bundle->classMethod("NuvoloHidden", "startSync"), nullptr);
  const Bundle::ClassMethod method = bundle->classMethod("NuvoloClient", "startSync");
  ASSERT_TRUE(method);
  void* library = dlopen((framework + "/libNuvolo.so").c_str(), RTLD_NOW | RTLD_NOLOAD);
  ASSERT_TRUE(library);
  const int* starts = static_cast<int*>(dlsym(library, "feedAgentStarts"));
  ASSERT_TRUE(starts);
  const int before = *starts;
  method();
  EXPECT_EQ(*starts, before + 1);
  dlclose(library);
}

TEST_F(Bundles, ApplicationsKeepTheirLibraryInContents) {
  platform.makeDirectories(root + "/App.app/Contents/Linux");
  std::filesystem::copy_file(CORVANE_TEST_FEED_AGENT, root + "/App.app/Contents/Linux/libApp.so");
  const std::unique_ptr<Bundle> bundle = loader.bundleWithPath(root + "/App.app");
  ASSERT_TRUE(bundle && bundle->load());
  EXPECT_TRUE(bundle->hasClass("NuvoloClient"));
}

TEST_F(Bundles, WithoutAUsableLibraryHaveNoClasses) {
  platform.makeDirectories(root + "/Empty.bundle");
  write(root + "/Broken.bundle/libBroken.so", "not a library");
  for (const char* name : {"/Empty.bundle", "/Broken.bundle"}) {
    const std::unique_ptr<Bundle> bundle = loader.bundleWithPath(root + name);
    ASSERT_TRUE(bundle) << name;
    EXPECT_FALSE(bundle->load()) << name;
    EXPECT_FALSE(bundle->hasClass("NuvoloClient")) << name;
    EXPECT_EQ(bundle->classMethod("NuvoloClient", "startSync"), nullptr) << name;
  }
  // A bundle without a library is nothing special.
  ASSERT_EQ(platform.log.messages.size(), 1u);
  const std::string library = root + "/Broken.bundle/libBroken.so";
  EXPECT_TRUE(platform.log.messages[0].starts_with("Can't open library " + library + ": "))
      << platform.log.messages[0];
  EXPECT_NE(platform.log.messages[0].find("file too short"), std::string::npos) << "the system's own cause";
}

TEST_F(Bundles, ResourcesAreFilesOfTheBundle) {
  write(tool + "/Contents/Resources/CorvaneClientDescription.plist", "{}");
  write(framework + "/Resources/R.txt", "r");
  platform.makeDirectories(tool + "/Contents/Resources/Folder.plist");
  EXPECT_EQ(loader.ownBundle().resource("CorvaneClientDescription", "plist"),
            tool + "/Contents/Resources/CorvaneClientDescription.plist");
  EXPECT_EQ(loader.ownBundle().resource("Other", "plist"), std::nullopt);
  EXPECT_EQ(loader.ownBundle().resource("Folder", "plist"), std::nullopt);
  EXPECT_EQ(loader.bundleWithPath(framework)->resource("R", "txt"), framework + "/Resources/R.txt");
}

TEST_F(Bundles, LocalizedStringsAreOfTheFirstLanguageThatHasThem) {
  const std::string resources = tool + "/Contents/Resources";
  write(resources + "/de_AT.lproj/Localizable.strings", "\"Only Austria\" = \"Servus\";\n");
  write(resources + "/de.lproj/Localizable.strings", "/* greeting */ \"Hello\" = \"Grüß Gott %@\";\n");
  write(resources + "/en.lproj/Localizable.strings", "\"Hello\" = \"Hi\"; \"English only\" = \"E\";\n");
  write(resources + "/de.lproj/Other.strings", "\"Hello\" = \"Anders\";\n");
  write(resources + "/de.lproj/Broken.strings", "\"Hello\" = ");
  Bundle& own = loader.ownBundle();
  EXPECT_EQ(own.localizedString("Only Austria", kDefaultStringsTable), "Servus");
  EXPECT_EQ(own.localizedString("Hello", kDefaultStringsTable), "Grüß Gott %@");
  EXPECT_EQ(own.localizedString("English only", kDefaultStringsTable), "E");
  EXPECT_EQ(own.localizedString("Hello", "Other"), "Anders");
  EXPECT_EQ(own.localizedString("Hello", "Broken"), "Hello");
  EXPECT_EQ(own.localizedString("Nobody has this", kDefaultStringsTable), "Nobody has this");
}

TEST_F(Bundles, TranslationsAreTheBestLanguagesTableAndNoneForEnglish) {
  const std::string resources = tool + "/Contents/Resources";
  write(resources + "/de.lproj/Messages.strings",
        "\"Hello\" = \"Hallo\"; \"%1 cats\" = { other = \"%1 Katzen\"; };\n");
  write(resources + "/en.lproj/Messages.strings", "\"Hello\" = \"Hello\";\n");
  const StringsTable* german = loader.ownBundle().translations("Messages");
  ASSERT_TRUE(german);
  EXPECT_EQ(german->language, "de");
  EXPECT_EQ(german->texts.string("Hello"), "Hallo");
  ASSERT_TRUE(german->texts.dictionary("%1 cats"));
  EXPECT_EQ(german->texts.dictionary("%1 cats")->string("other"), "%1 Katzen");
  EXPECT_EQ(loader.ownBundle().translations("Other"), nullptr);
  for (const char* locale : {"en_GB.UTF-8", "C"}) {
    LinuxBundleLoader english(platform.files, tool + "/Contents/Linux/corvanetool",
                              preferredLanguages(locale));
    const std::size_t calls = platform.files.calls.size();
    EXPECT_EQ(english.ownBundle().translations("Messages"), nullptr) << locale;
    EXPECT_EQ(platform.files.calls.size(), calls) << locale;
  }
  LinuxBundleLoader untranslated(platform.files, tool + "/Contents/Linux/corvanetool",
                                 preferredLanguages("pt_BR"));
  EXPECT_EQ(untranslated.ownBundle().translations("Messages"), nullptr);
}

TEST(Languages, AreThoseThatALocaleNames) {
  using Names = std::vector<std::string>;
  EXPECT_EQ(preferredLanguages("de_DE.UTF-8@euro"), (Names{"de_DE", "de", "en"}));
  EXPECT_EQ(preferredLanguages("fr"), (Names{"fr", "en"}));
  EXPECT_EQ(preferredLanguages("en_GB"), (Names{"en_GB", "en"}));
  for (const char* locale : {"", "C", "C.UTF-8", "POSIX", "../../etc", "de/x", ".UTF-8"}) {
    EXPECT_EQ(preferredLanguages(locale), Names{"en"}) << locale;
  }
}

TEST(Languages, AreOfTheStrongestVariable) {
  const ScopedVariable all("LC_ALL", ""), messages("LC_MESSAGES", "fr_FR"), language("LANG", "de_DE");
  EXPECT_EQ(localeOfEnvironment(), "fr_FR");
  {
    const ScopedVariable stronger("LC_ALL", "it");
    EXPECT_EQ(localeOfEnvironment(), "it");
  }
  const ScopedVariable none("LC_MESSAGES", std::nullopt);
  EXPECT_EQ(localeOfEnvironment(), "de_DE");
}

TEST(FakeBundles, ObeyTheContract) {
  FakeBundles bundles;
  FakeBundle& declared = bundles.byPath["/B.bundle"];
  declared.classes = {"NuvoloClient"};
  declared.methods[{"NuvoloClient", "startSync"}] = &FakeBundles::countingMethod;
  declared.methods[{"NuvoloClient", "fail"}] = &FakeBundles::raisingMethod;
  EXPECT_FALSE(bundles.bundleWithPath("/Other.bundle"));
  const std::unique_ptr<Bundle> bundle = bundles.bundleWithPath("/B.bundle");
  ASSERT_TRUE(bundle);
  EXPECT_FALSE(bundle->hasClass("NuvoloClient")) << "not before it is loaded";
  EXPECT_EQ(bundle->classMethod("NuvoloClient", "startSync"), nullptr);
  ASSERT_TRUE(bundle->load());
  EXPECT_TRUE(bundle->hasClass("NuvoloClient"));
  bundle->classMethod("NuvoloClient", "startSync")();
  EXPECT_THROW(bundle->classMethod("NuvoloClient", "fail")(), PlatformException);
  EXPECT_EQ(FakeBundles::methodCalls, 2);
  EXPECT_EQ(bundle->localizedString("key", kDefaultStringsTable), "key");
}

}  // namespace
}  // namespace corvane
