#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "Shared/QVFileManager.h"
#include "tests/support/Sandbox.h"

namespace {

using std::filesystem::create_symlink;
using test::Sandbox;
using testing::ElementsAre;
using testing::IsEmpty;

class QVFileManagerNamesTest : public testing::Test {
 protected:
  std::vector<std::string> match(const std::string& pattern) const {
    std::vector<std::string> names;
    for (const std::string& path :
         QVFileManager::filesMatchingWildcardPath(pattern, sandbox_.root())) {
      EXPECT_TRUE(path.starts_with(sandbox_.root())) << path;
      names.push_back(path.substr(sandbox_.root().size()));
    }
    return names;
  }

  Sandbox sandbox_;
};

TEST_F(QVFileManagerNamesTest, APatternWithoutAStarIsJoinedToTheBaseUnseen) {
  EXPECT_THAT(match("no/such.txt"), ElementsAre("/no/such.txt"));
  EXPECT_THAT(match("/no/such.txt"), ElementsAre("/no/such.txt"));
  EXPECT_THAT(match("no/?"), ElementsAre("/no/?"));
  EXPECT_THAT(QVFileManager::filesMatchingWildcardPath("/no/such"), ElementsAre("/no/such"));
}

TEST_F(QVFileManagerNamesTest, EveryNameThatIsLikeThePatternIsFoundInTheOrderOfItsBytes) {
  for (const char* name : {"b.txt", "a.txt", ".hidden.txt", "Z.txt", "a.text", "[.txt"}) {
    sandbox_.makeFile(std::string("logs/") + name);
  }
  sandbox_.makeDirectory("logs/folder.txt");
  EXPECT_THAT(match("logs/*.txt"), ElementsAre("/logs/.hidden.txt", "/logs/Z.txt", "/logs/[.txt",
                                               "/logs/a.txt", "/logs/b.txt", "/logs/folder.txt"));
  EXPECT_THAT(match("logs/[*"), ElementsAre("/logs/[.txt"));
  EXPECT_THAT(match("logs/?.t*t"), ElementsAre("/logs/Z.txt", "/logs/[.txt", "/logs/a.text",
                                               "/logs/a.txt", "/logs/b.txt"));
  EXPECT_THAT(match("missing/*.txt"), IsEmpty());
}

TEST_F(QVFileManagerNamesTest, AWildcardInTheMiddleGoesThroughFoldersOnly) {
  sandbox_.makeFile("logs/one/file");
  sandbox_.makeFile("logs/two/file");
  sandbox_.makeFile("logs/two/other");
  sandbox_.makeFile("logs/plain");
  EXPECT_THAT(match("logs/*/file"), ElementsAre("/logs/one/file", "/logs/two/file"));
  EXPECT_THAT(match("l*/*/f*"), ElementsAre("/logs/one/file", "/logs/two/file"));
  EXPECT_THAT(match("logs/*/nothing"), IsEmpty());
}

TEST_F(QVFileManagerNamesTest, ADanglingLinkIsNotFoundAndOneThatLeadsSomewhereIs) {
  create_symlink("nowhere", sandbox_.path("a.link"));
  create_symlink(sandbox_.makeDirectory("folder"), sandbox_.path("b.link"));
  sandbox_.makeFile("folder/file");
  EXPECT_THAT(match("*.link"), ElementsAre("/b.link"));
  EXPECT_THAT(match("*.link/file"), ElementsAre("/b.link/file"));
}

TEST_F(QVFileManagerNamesTest, AnAbsolutePatternIsReadFromTheBase) {
  sandbox_.makeFile("x/a.log");
  EXPECT_THAT(match("/x/*.log"), ElementsAre("/x/a.log"));
}

TEST_F(QVFileManagerNamesTest, ASlashAtTheEndLeadsBackToTheBase) {
  sandbox_.makeFile("logs/one/file");
  EXPECT_THAT(match("logs/*/"), ElementsAre(""));
  EXPECT_THAT(match("missing/*/"), ElementsAre(""));
  EXPECT_THAT(QVFileManager::filesMatchingWildcardPath("logs/*/"), ElementsAre("/"));
}

TEST_F(QVFileManagerNamesTest, WithoutABaseTheSearchBeginsAtTheRoot) {
  sandbox_.makeFile("x/a.log");
  EXPECT_THAT(QVFileManager::filesMatchingWildcardPath(sandbox_.path("x/*.log")),
              ElementsAre(sandbox_.path("x/a.log")));
  EXPECT_THAT(QVFileManager::filesMatchingWildcardPath("et*", std::nullopt), ElementsAre("/etc"));
}

TEST_F(QVFileManagerNamesTest, DecodingGivesTheFirstMatchOrThePatternItself) {
  sandbox_.makeFile("x/b.log");
  sandbox_.makeFile("x/a.log");
  EXPECT_EQ(QVFileManager::decodeWildcardPath("x/*.log", sandbox_.root()),
            sandbox_.path("x/a.log"));
  EXPECT_EQ(QVFileManager::decodeWildcardPath("x/*.none", sandbox_.root()),
            sandbox_.path("x/*.none"));
  EXPECT_EQ(QVFileManager::decodeWildcardPath("nowhere/*", std::nullopt), std::nullopt);
  EXPECT_EQ(QVFileManager::decodeWildcardPath("/plain", std::nullopt), "/plain");
}

TEST_F(QVFileManagerNamesTest, ANameIsMadeFitForAFile) {
  EXPECT_EQ(QVFileManager::validateFilename("."), "");
  EXPECT_EQ(QVFileManager::validateFilename(".x"), "x");
  EXPECT_EQ(QVFileManager::validateFilename("..x"), ".x");
  EXPECT_EQ(QVFileManager::validateFilename(".."), ".");
  EXPECT_EQ(QVFileManager::validateFilename("a/b"), "ab");
  EXPECT_EQ(QVFileManager::validateFilename("a:b"), "ab");
  EXPECT_EQ(QVFileManager::validateFilename("  name \t\r\n"), "name");
  EXPECT_EQ(QVFileManager::validateFilename("\xC2\xA0name\xE2\x80\xA8"), "name");
  EXPECT_EQ(QVFileManager::validateFilename(""), "");
  EXPECT_EQ(QVFileManager::validateFilename("/:/"), "");
}

TEST_F(QVFileManagerNamesTest, TheDotGoesBeforeTheBlanksDo) {
  EXPECT_EQ(QVFileManager::validateFilename(" .x"), ".x");
  EXPECT_EQ(QVFileManager::validateFilename(". x"), "x");
  EXPECT_EQ(QVFileManager::validateFilename("/.x"), ".x");
}

TEST_F(QVFileManagerNamesTest, BlanksGoBeforeSlashesAndColonsDoAndNotAfterwards) {
  EXPECT_EQ(QVFileManager::validateFilename("/ name :"), " name ");
  EXPECT_EQ(QVFileManager::validateFilename(" / name : "), " name ");
}

TEST_F(QVFileManagerNamesTest, AFreeNameIsFoundBesideAnExistingItem) {
  const std::string file = sandbox_.path("a.txt");
  EXPECT_EQ(QVFileManager::uniqueFilename(file), file);
  sandbox_.makeFile("a.txt");
  EXPECT_EQ(QVFileManager::uniqueFilename(file), sandbox_.path("a 2.txt"));
  sandbox_.makeFile("a 2.txt");
  EXPECT_EQ(QVFileManager::uniqueFilename(file), sandbox_.path("a 3.txt"));
}

TEST_F(QVFileManagerNamesTest, TheNumberStandsBeforeTheLastExtensionOnly) {
  EXPECT_EQ(QVFileManager::uniqueFilename(sandbox_.makeDirectory("Reports")),
            sandbox_.path("Reports 2"));
  EXPECT_EQ(QVFileManager::uniqueFilename(sandbox_.makeFile("a.tar.gz")),
            sandbox_.path("a.tar 2.gz"));
  EXPECT_EQ(QVFileManager::uniqueFilename(sandbox_.makeFile(".profile")),
            sandbox_.path(".profile 2"));
  EXPECT_EQ(QVFileManager::uniqueFilename(sandbox_.makeDirectory("A.app") + "/"),
            sandbox_.path("A 2.app"));
}

}  // namespace
