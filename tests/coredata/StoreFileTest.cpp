#include <functional>

#include <gmock/gmock.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include "platform/coredata/StoreReader.h"
#include "tests/coredata/StoreFixture.h"

namespace {

constexpr int kEndedAtWrite = 99;
int writesLeft = -1;

}  // namespace

// In the place of the C library's `pwrite64`, also for SQLite.
extern "C" ssize_t endingPwrite(int file, const void* octets, std::size_t count,
                                off64_t offset) asm("pwrite64") __attribute__((visibility("default")));
extern "C" ssize_t endingPwrite(int file, const void* octets, std::size_t count, off64_t offset) {
  if (writesLeft >= 0 && writesLeft-- == 0) _exit(kEndedAtWrite);
  return syscall(SYS_pwrite64, file, octets, count, offset);
}

namespace {

using std::filesystem::path;
using testing::ElementsAre;
using testing::HasSubstr;

void makeStore(const path& file, std::string_view model = test::kThings) {
  auto context = test::openContext(file, model);
  for (int i = 0; i < 2000; ++i) test::insertThing(*context, std::string(50, 'x'));
  ASSERT_TRUE(context->save());
}

// A store whose octets someone has changed.
void makeDamaged(const path& file, const std::function<void(std::string&)>& damage) {
  makeStore(file);
  std::string octets = test::contentsOf(file);
  damage(octets);
  test::writeFile(file, octets);
}

TEST(StoreFile, WhatIsNoStoreOfTheModelDoesNotOpenAndIsNotTouched) {
  struct {
    const char* name;
    const char* reason;
    std::function<void(const path&)> make;
  } const files[] = {
      {"a text", "not a database",
       [](const path& file) { test::writeFile(file, "hello, this is a text\n"); }},
      {"one octet", "not a database", [](const path& file) { test::writeFile(file, "x"); }},
      {"zeros and then something", "not a database",
       [](const path& file) { test::writeFile(file, std::string(8192, '\0') + "x"); }},
      {"another application's database", "another application",
       [](const path& file) { test::sql(file, "CREATE TABLE Thing (name TEXT, size INTEGER)"); }},
      {"another application's database with a log", "another application",
       [](const path& file) {
         test::sql(file, "PRAGMA journal_mode = WAL; CREATE TABLE Thing (name TEXT, size INTEGER)");
       }},
      {"a store of another model", "another model",
       [](const path& file) { makeStore(file, "entity Thing\nname string\nsize unsigned\n"); }},
      {"a store whose fingerprint differs in the rest only", "another model",
       [](const path& file) {
         makeStore(file);
         test::sql(file, "UPDATE NSStoreMetadata SET value = '0123456789abcdef'");
       }},
      {"a store that lacks a column", "no such column",
       [](const path& file) {
         makeStore(file);
         test::sql(file, "ALTER TABLE Thing DROP COLUMN size");
       }},
      {"a store cut off", "malformed",
       [](const path& file) { makeDamaged(file, [](auto& octets) { octets.resize(octets.size() / 2); }); }},
      {"a store with a damaged first page", "",
       [](const path& file) {
         makeDamaged(file, [](auto& octets) { octets.replace(100, 300, std::string(300, '\xff')); });
       }},
      {"a store with damaged rows at the end", "malformed",
       [](const path& file) {
         makeDamaged(file, [](auto& octets) {
           octets.replace(8192, octets.size() - 8192, std::string(octets.size() - 8192, '\xff'));
         });
       }},
      {"a folder", "not a file", [](const path& file) { std::filesystem::create_directory(file); }},
  };
  for (const auto& [name, reason, make] : files) {
    SCOPED_TRACE(name);
    const test::TemporaryFolder folder;
    make(folder / "s");
    const auto before = folder.contents();
    platform::Error error;
    EXPECT_EQ(test::openContext(folder / "s", test::kThings, &error), nullptr);
    EXPECT_THAT(error.text, HasSubstr(reason));
    EXPECT_FALSE(platform::StoreReader::open(test::modelOf(test::kThings), folder / "s"));
    EXPECT_TRUE(folder.contents() == before) << "the files have changed";
  }
}

TEST(StoreFile, APlaceWhereNoFileCanBeDoesNotOpen) {
  const test::TemporaryFolder folder;
  test::writeFile(folder / "file", "x");
  for (const char* place : {"file/s", "missing/s"}) {
    EXPECT_EQ(test::openContext(folder / place), nullptr) << place;
  }
  EXPECT_FALSE(platform::StoreReader::open(test::modelOf(test::kThings), folder / "none"));
  EXPECT_FALSE(std::filesystem::exists(folder / "none"));
  const platform::Dictionary options = {
      {std::string(platform::NSSQLiteSynchronousOption), std::string("SOMETIMES")}};
  EXPECT_EQ(test::openContext(folder / "s", test::kThings, nullptr, &options), nullptr);
  EXPECT_FALSE(std::filesystem::exists(folder / "s"));
}

// As a process leaves it that is killed while it makes the file, or a power cut after that.
TEST(StoreFile, AFileOfNothingBecomesAStore) {
  for (const std::size_t octets : {0, 1, 8192}) {
    const test::TemporaryFolder folder;
    test::writeFile(folder / "s", std::string(octets, '\0'));
    makeStore(folder / "s");
    EXPECT_THAT(test::sql(folder / "s", "PRAGMA integrity_check"), ElementsAre("ok")) << octets;
    EXPECT_THAT(test::sql(folder / "s", "PRAGMA auto_vacuum"), ElementsAre("2")) << octets;
  }
}

// Ends a process that makes a store at one of its writes; false when there are not so many.
bool endsAtWrite(int write, const path& file) {
  const pid_t child = fork();
  if (child == 0) {
    writesLeft = write;
    test::openContext(file);
    _exit(0);
  }
  int status = 0;
  waitpid(child, &status, 0);
  return WEXITSTATUS(status) == kEndedAtWrite;
}

TEST(StoreFile, ACreationThatEndsAtAnyWriteIsMadeUpFor) {
  int write = 0;
  for (bool ended = true; ended; ++write) {
    const test::TemporaryFolder folder;
    ended = endsAtWrite(write, folder / "s");
    endsAtWrite(write / 2, folder / "s");
    platform::Error error;
    EXPECT_NE(test::openContext(folder / "s", test::kThings, &error), nullptr) << write << ": " << error.text;
  }
  EXPECT_GT(write, 5);
}

TEST(StoreFile, TheSpaceOfDeletedObjectsIsGivenBackAndTheirNumbersAreNot) {
  const test::TemporaryFolder folder;
  auto context = test::openContext(folder / "s");
  // More than are deleted in one step.
  for (int i = 0; i < 12'000; ++i) test::insertThing(*context, std::string(50, 'x'));
  ASSERT_TRUE(context->save());
  context->deleteAllObjects("Thing");
  ASSERT_TRUE(context->save());
  test::insertThing(*context, "later");
  ASSERT_TRUE(context->save());
  EXPECT_THAT(test::sql(folder / "s", "SELECT rowid FROM Thing"), ElementsAre("12001"));
  context.reset();
  EXPECT_LT(std::filesystem::file_size(folder / "s"), 50'000U);
}

TEST(StoreFile, AnyToolFindsTheEntitiesAsTables) {
  const test::TemporaryFolder folder;
  const platform::Dictionary options = {
      {std::string(platform::NSSQLiteSynchronousOption), std::string("FULL")}};
  const auto file = folder / "a file%20 with?odd#name";
  auto context = test::openContext(file, "entity E\ni integer\nu unsigned\ns string\nd date\nb binary\n",
                                   nullptr, &options);
  ASSERT_NE(context, nullptr);
  EXPECT_THAT(test::sql(file, "SELECT name, type FROM pragma_table_info('E')"),
              ElementsAre("i|INTEGER", "u|INTEGER", "s|TEXT", "d|REAL", "b|BLOB"));
  EXPECT_THAT(test::sql(file, "PRAGMA journal_mode"), ElementsAre("wal"));
  context.reset();
  EXPECT_EQ(folder.contents().size(), 1U) << "SQLite's own files are left behind";
}

TEST(StoreReader, FollowsWhatIsSavedWhileTheStoreIsInUse) {
  const test::TemporaryFolder folder;
  auto context = test::openContext(folder / "s");
  auto reader = *platform::StoreReader::open(test::modelOf(test::kThings), folder / "s");
  ASSERT_NE(reader, nullptr);
  const auto& entity = reader->model().entities()[0];
  EXPECT_EQ(reader->lastRow(entity), 0);
  for (const char* name : {"a", "b", "c"}) test::insertThing(*context, name);
  EXPECT_EQ(reader->count(entity), 0U) << "pending is not saved";
  ASSERT_TRUE(context->save());
  std::string seen;
  const auto take = [&](const platform::StoredRow& row) {
    seen += std::get<std::string_view>(row.values[0]);
    return true;
  };
  EXPECT_TRUE(reader->rowsAfter(entity, 1, take));
  EXPECT_TRUE(reader->lastRows(entity, 2, take));
  EXPECT_TRUE(reader->lastRows(entity, 100, take));
  EXPECT_EQ(seen, "bcbcabc");
  EXPECT_EQ(reader->count(entity), 3U);
  EXPECT_EQ(reader->lastRow(entity), 3);
  // "0": nobody is in the way of emptying the log.
  const auto stall = [&](const auto&) {
    EXPECT_THAT(test::sql(folder / "s", "PRAGMA wal_checkpoint(TRUNCATE)"), ElementsAre("0|0|0"));
    return true;
  };
  EXPECT_TRUE(reader->rowsAfter(entity, 0, stall));
  std::filesystem::remove(folder / "s");
  EXPECT_FALSE(reader->rowsAfter(entity, 0, take)) << "the file is gone";
}

TEST(StoreReader, ReadsWhereItMayNotWrite) {
  const test::TemporaryFolder folder;
  makeStore(folder / "s");
  std::filesystem::permissions(folder / "s", std::filesystem::perms(0444));
  std::filesystem::permissions(folder.path(), std::filesystem::perms(0555));
  const uid_t user = geteuid();
  // Permissions say nothing to root.
  ASSERT_EQ(seteuid(user == 0 ? 65'534 : user), 0);
  auto opened = platform::StoreReader::open(test::modelOf(test::kThings), folder / "s");
  ASSERT_EQ(seteuid(user), 0);
  std::filesystem::permissions(folder.path(), std::filesystem::perms(0700));
  ASSERT_TRUE(opened) << opened.error().text;
  const auto& reader = *opened;
  const auto& entity = reader->model().entities()[0];
  EXPECT_EQ(reader->count(entity), 2000U);
  // Another process, which may, begins to write.
  std::filesystem::permissions(folder / "s", std::filesystem::perms(0600));
  auto context = test::openContext(folder / "s");
  test::insertThing(*context, "new");
  ASSERT_TRUE(context->save());
  EXPECT_EQ(reader->count(entity), 2001U);
}

}  // namespace
