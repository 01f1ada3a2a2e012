#include <algorithm>
#include <filesystem>
#include <utility>

#include <gtest/gtest.h>
#include <sys/stat.h>

#include "tests/tool/RunTool.h"

namespace brenloft_test {
namespace {

namespace fs = std::filesystem;

TEST(Store, AnUnusableContainerIsOneLineAndFiveAndStaysAsItWas) {
  TemporaryFolder folder;
  writeFile(folder.file("file"), "no folder");
  ASSERT_EQ(::mkdir(folder.file("garbage").c_str(), 0755), 0);
  const std::string store = folder.file("garbage/ServiceModel.sqlite");
  const std::string octets =
      "this is no database, and longer than any header of one would be. " + std::string(200, 'x');
  writeFile(store, octets);
  // Triggers of strangers would run with the rights of whoever logs.
  const std::string foreign = folder.file("foreign/ServiceModel.sqlite");
  ASSERT_EQ(runTool({"tag", "set", "a", "-C", folder.file("foreign")}).status, 0);
  ASSERT_EQ(
      runProgram({"sqlite3", foreign,
                  "CREATE INDEX i ON SensorLog (uuid); CREATE TRIGGER t AFTER INSERT ON SensorLog BEGIN "
                  "DELETE FROM BRLUserDataModel; END"})
          .status,
      0);
  for (const std::string container : {"file", "garbage", "foreign"}) {
    const std::vector<std::vector<std::string>> commands{
        {"scan", "--source", "demo", "--log", "-q", "--container", folder.file(container)},
        {"log", "count", "--container", folder.file(container)},
        {"tag", "list", "--container", folder.file(container)}};
    for (const auto& command : commands) {
      const Ended ended = runTool(command);
      EXPECT_EQ(ended.status, 5) << testing::PrintToString(command) << ended.err;
      EXPECT_EQ(std::count(ended.err.begin(), ended.err.end(), '\n'), 1) << ended.err;
      EXPECT_EQ(ended.out, "");
    }
  }
  EXPECT_EQ(contentsOf(store), octets);
  EXPECT_EQ(contentsOf(folder.file("file")), "no folder");
}

TEST(Store, ReadingMakesNothing) {
  TemporaryFolder folder;
  const std::vector<std::pair<std::vector<std::string>, int>> commands{
      {{"log", "show"}, 0},      {{"log", "count"}, 0},
      {{"log", "export"}, 0},    {{"log", "delete", "--yes"}, 0},
      {{"tag", "list"}, 0},      {{"tag", "clear", "--yes"}, 0},
      {{"tag", "get", "key"}, 1}};
  fs::create_directory(folder.file("empty"));
  for (auto [command, status] : commands) {
    command.insert(command.end(), {"--container", folder.file("empty")});
    const Ended empty = runTool(command);
    EXPECT_EQ(empty.status, status) << testing::PrintToString(command);
    if (command.size() == 4) {  // whose result is empty, and nothing else was asked
      EXPECT_NE(empty.err.find("in " + folder.file("empty")), std::string::npos) << empty.err;
    }
    EXPECT_TRUE(fs::is_empty(folder.file("empty"))) << testing::PrintToString(command);

    command.back() = folder.file("mistyped/deep");
    const Ended mistyped = runTool(command);
    EXPECT_EQ(mistyped.status, 5) << testing::PrintToString(command);
    EXPECT_EQ(mistyped.err, "brenloft: " + command.back() + ": No such file or directory\n");
    EXPECT_FALSE(fs::exists(folder.file("mistyped")));
  }
}

TEST(Store, IsTheOwnersAloneInTheDataFolderAndAsTheUmaskSaysElsewhere) {
  TemporaryFolder folder;
  const auto make = [&](const std::string& container) {
    return runProgram({"sh", "-c",
                       "umask 027; HOME=$1 XDG_DATA_HOME= exec $0 scan --source demo --log -q " + container,
                       toolPath(), folder.file("")})
        .status;
  };
  ASSERT_EQ(make(""), 0);
  ASSERT_EQ(make("-C " + folder.file("shared")), 0);
  for (const auto& [made, file] :
       {std::pair(folder.file(".local/share/brenloft"), 0600), std::pair(folder.file("shared"), 0640)}) {
    EXPECT_EQ(fs::status(made).permissions(), fs::perms(file | (file & 0444) >> 2));
    for (const auto& entry : fs::directory_iterator(made))
      EXPECT_EQ(entry.status().permissions(), fs::perms(file)) << entry.path();
  }
}

// No file may grow beyond 36 KiB, as on a disk that is full: room for some rows in the store's log.
Ended runOnFullDisk(std::vector<std::string> arguments) {
  arguments.insert(arguments.begin(), {"sh", "-c", "ulimit -f 72; exec \"$0\" \"$@\"", toolPath()});
  return runProgram(arguments);
}

TEST(Store, ASaveThatFailsIsOneLineAndFiveAndLeavesWhatWasSaved) {
  TemporaryFolder folder;
  const std::string container = folder.file("c");
  const std::string store = container + "/ServiceModel.sqlite";
  const auto fails = [&](const Ended& ended) {
    EXPECT_EQ(ended.status, 5) << ended.err;
    EXPECT_EQ(ended.err.find("brenloft: " + store + ": "), 0U) << ended.err;
    EXPECT_EQ(std::count(ended.err.begin(), ended.err.end(), '\n'), 1) << ended.err;
  };
  ASSERT_EQ(runTool({"tag", "set", "door", "--container", container}, "first").status, 0);
  writeFile(folder.file("large"), std::string(200'000, 'x'));
  fails(runOnFullDisk({"tag", "set", "door", "--file", folder.file("large"), "--container", container}));
  EXPECT_EQ(runTool({"tag", "list", "--format", "jsonl", "--container", container}).out,
            "{\"key\":\"door\",\"data\":\"6669727374\"}\n");

  const std::string recorded = folder.file("recorded");
  const Ended cut = runOnFullDisk(
      {"scan", "--source", "demo", "--log", "-q", "--container", container, "--record", recorded});
  fails(cut);
  // Nothing that was heard or told is kept back.
  const auto bytes = [](const std::string& line) { return line.find("\"bytes\"") != std::string::npos; };
  const auto told = cut.lines();
  const Ended heard = runTool({"hear", "--source", "capture:" + recorded, "--format", "jsonl"});
  EXPECT_GE(std::count_if(told.begin(), told.end(), bytes), 3);
  EXPECT_GE(heard.lines().size(), std::count_if(told.begin(), told.end(), bytes));
  const Ended rows = runTool({"log", "count", "--container", container});
  EXPECT_EQ(rows.status, 0) << rows.err;
  EXPECT_GT(std::stoi(rows.out), 0);
}

TEST(Tags, ADamagedStoreIsNotCalledEmpty) {
  TemporaryFolder folder;
  const std::string store = folder.file("c/ServiceModel.sqlite");
  const auto run = [&](std::vector<std::string> arguments) {
    arguments.insert(arguments.end(), {"-C", folder.file("c")});
    return runTool(arguments);
  };
  // So long that each has a page of its own.
  for (const char tag : {'A', 'B', 'C'}) {
    writeFile(folder.file("tag"), std::string(3000, tag));
    ASSERT_EQ(run({"tag", "set", std::string(1, tag), "--file", folder.file("tag")}).status, 0);
  }
  // The first of them goes, once the last reader has taken the log into the file. Opening looks at the last.
  ASSERT_EQ(run({"log", "count"}).status, 0);
  constexpr std::size_t kPage = 4096;
  constexpr char kLeaf = 0x0D;
  std::string octets = contentsOf(store);
  bool isDamaged = false;
  for (std::size_t page = 0; page + kPage <= octets.size(); page += kPage) {
    if (octets[page] != kLeaf || octets.substr(page, kPage).find("AAAA") == std::string::npos) continue;
    octets.replace(page, kPage, kPage, 'x');
    isDamaged = true;
  }
  ASSERT_TRUE(isDamaged);
  writeFile(store, octets);

  const std::string line = "brenloft: " + store + ": the tags cannot be read\n";
  EXPECT_EQ(run({"tag", "list"}).err, line);
  EXPECT_EQ(run({"tag", "get", "D"}).err, line);
  EXPECT_EQ(run({"tag", "clear", "--yes"}).err, line);
  const Ended listed = run({"tag", "list"});
  EXPECT_EQ(listed.status, 5);
  EXPECT_EQ(listed.out, "");
}

TEST(Tags, AreNotSetWhereNothingCanBeKept) {
  const Ended ended = runProgram({"sh", "-c", "HOME=/dev/null XDG_DATA_HOME= exec $0 tag set a", toolPath()});
  EXPECT_EQ(ended.status, 5);
  EXPECT_EQ(ended.err,
            "brenloft: /dev/null/.local/share/brenloft/ServiceModel.sqlite: unable to open database file\n");
}

TEST(Tags, AreNotSetFromWhatCannotBeReadOrIsTooLong) {
  TemporaryFolder folder;
  writeFile(folder.file("long"), "");
  fs::resize_file(folder.file("long"), 999'999'898);
  const auto set = [&](const std::string& more) {
    const Ended ended =
        runProgram({"sh", "-c", "exec \"$0\" tag set key -C \"$1/c\" " + more, toolPath(), folder.file("")});
    EXPECT_EQ(ended.status, 1) << more;
    EXPECT_FALSE(fs::exists(folder.file("c"))) << more;
    return ended.err;
  };
  EXPECT_EQ(set("<&-"), "brenloft: standard input: Bad file descriptor\n");
  EXPECT_EQ(set("<\"$1\""), "brenloft: standard input: Is a directory\n");
  EXPECT_EQ(set("--file \"$1\""), "brenloft: " + folder.file("") + ": Is a directory\n");
  EXPECT_EQ(set("--file \"$1\"absent"),
            "brenloft: " + folder.file("absent") + ": No such file or directory\n");
  EXPECT_EQ(set("--file \"$1\"long"),
            "brenloft: " + folder.file("long") + ": a tag under this key has 999999897 octets at most\n");
}

TEST(Tags, ComeBackAsTheyWereInALaterProcess) {
  TemporaryFolder folder;
  const std::string container = folder.file("c");
  const std::string octets("\0\xFF\nlast", 7);
  writeFile(folder.file("tag"), octets);
  const auto tag = [&](std::vector<std::string> arguments, const std::string& input = {}) {
    arguments.insert(arguments.begin(), "tag");
    arguments.insert(arguments.end(), {"--container", container});
    return runTool(arguments, input);
  };
  EXPECT_EQ(tag({"set", "door", "--file", folder.file("tag")}).status, 0);
  EXPECT_EQ(tag({"set", "door"}, "second").status, 0);
  EXPECT_EQ(tag({"get", "door"}).out, octets);
  EXPECT_EQ(tag({"list", "--format", "jsonl"}).out,
            "{\"key\":\"door\",\"data\":\"00ff0a6c617374\"}\n{\"key\":\"door\",\"data\":\"7365636f6e64\"}\n");

  const Ended absent = tag({"get", "window"});
  EXPECT_EQ(absent.status, 1);
  EXPECT_EQ(absent.err, "brenloft: no tag under the key window\n");
  // Cut off, too long, a surrogate, beyond the last character; then characters of two to four octets.
  const std::string characters = "\xDF\xBF \xED\x9F\xBF \xF4\x8F\xBF\xBF";
  EXPECT_EQ(
      tag({"set", "\xE2\x82 \xC0\x80 \xE0\x9F\xBF \xED\xA0\x80 \xF4\x90\x80\x80 " + characters}, "").status,
      0);
  const auto replaced = [](std::string text) {
    for (std::size_t at = 0; (at = text.find('?')) != std::string::npos;) text.replace(at, 1, "\xEF\xBF\xBD");
    return text;
  };
  EXPECT_EQ(tag({"list", "--format", "jsonl"}).lines().back(),
            replaced("{\"key\":\"?? ?? ??? ??? ???? " + characters + "\",\"data\":\"\"}"));
  // Neither a control character of one octet, nor one of two, nor what is no text reaches the terminal.
  EXPECT_EQ(tag({"get", "\x1b[2J\xC2\x9B\xFF\xE2\x82\xAC"}).err,
            "brenloft: no tag under the key ?[2J??\xE2\x82\xAC\n");

  EXPECT_EQ(tag({"clear", "--yes"}).status, 0);
  EXPECT_EQ(tag({"list", "--format", "jsonl"}).out, "");
}

TEST(Sources, ListsWhatNeedsNoRadioAndSaysWhatAutoMeans) {
  const Ended ended = runTool({"sources"});
  EXPECT_EQ(ended.status, 0);
  EXPECT_NE(ended.out.find("\ndemo "), std::string::npos);
  EXPECT_NE(ended.err.find("auto: "), std::string::npos);
}

}  // namespace
}  // namespace brenloft_test
