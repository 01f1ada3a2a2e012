#include <limits>

#include <gmock/gmock.h>

#include "tests/coredata/StoreFixture.h"

namespace {

using platform::Data;
using platform::NSFetchRequest;
using platform::NSInvalidArgumentException;
using platform::NSNumber;
using platform::NSPredicate;
using platform::Value;
using test::insertThing;
using test::modelOf;
using test::names;
using test::things;
using testing::ElementsAre;

constexpr std::string_view kAllKinds = "entity Kind\ni integer\nu unsigned\ns string\nd date\nb binary\n";

class Context : public testing::Test {
 protected:
  const test::TemporaryFolder folder;
  std::unique_ptr<platform::NSManagedObjectContext> context = test::openContext(folder / "s");
};

TEST_F(Context, ValuesComeBackFromTheFileUnchanged) {
  struct {
    const char* name;
    const char* key;
    std::optional<Value> value;
  } const values[] = {
      {"least integer", "i", NSNumber(std::numeric_limits<int64_t>::min())},
      {"greatest integer", "i", NSNumber(std::numeric_limits<int64_t>::max())},
      {"greatest unsigned", "u", NSNumber(std::numeric_limits<uint64_t>::max())},
      {"absent number", "i", std::nullopt},
      {"empty text", "s", std::string()},
      {"absent text", "s", std::nullopt},
      {"text with a NUL inside", "s", std::string("a\0b", 3)},
      {"octets that are no UTF-8", "s", std::string("\xff\xfe\xc0 \xed\xa0\x80")},
      {"hangul", "s", std::string("위치정보")},
      {"microseconds", "d", platform::Date(std::chrono::microseconds(1'470'406'990'123'457))},
      {"before 1970", "d", platform::Date(std::chrono::microseconds(-1))},
      {"no octets", "b", Data()},
      {"absent data", "b", std::nullopt},
      {"any octets", "b", Data{std::byte{0}, std::byte{255}, std::byte{0}}},
  };
  context = test::openContext(folder / "k", kAllKinds);
  for (const auto& kept : values) {
    auto object = platform::NSEntityDescription::insertNewObjectForEntityForName_inManagedObjectContext(
        "Kind", context.get());
    object->setValue_forKey(kept.value, kept.key);
  }
  ASSERT_TRUE(context->save());
  context.reset();
  context = test::openContext(folder / "k", kAllKinds);
  const auto objects = context->executeFetchRequest_error(NSFetchRequest::fetchRequestWithEntityName("Kind"));
  ASSERT_EQ(objects->size(), std::size(values));
  for (std::size_t i = 0; i < objects->size(); ++i)
    EXPECT_EQ((*objects)[i]->valueForKey(values[i].key), values[i].value) << values[i].name;
}

TEST_F(Context, MistakesOfTheProgramThrow) {
  auto thing = insertThing(*context, "a");
  EXPECT_THROW(thing->setValue_forKey(std::string("x"), "colour"), NSInvalidArgumentException);
  EXPECT_THROW(thing->setValue_forKey(std::string("x"), "size"), NSInvalidArgumentException);
  EXPECT_THROW((void)thing->valueForKey("colour"), NSInvalidArgumentException);
  using platform::NSEntityDescription;
  EXPECT_THROW(
      NSEntityDescription::insertNewObjectForEntityForName_inManagedObjectContext("Nothing", context.get()),
      NSInvalidArgumentException);
  EXPECT_THROW(NSEntityDescription::insertNewObjectForEntityForName_inManagedObjectContext("Thing", nullptr),
               NSInvalidArgumentException);
  for (const char* format : {"", "name", "name == %@", "name = %@ OR 1", "= %@"}) {
    EXPECT_THROW(NSPredicate::predicateWithFormat(format, "x"), NSInvalidArgumentException) << format;
  }
  EXPECT_EQ(context->executeFetchRequest_error(NSFetchRequest::fetchRequestWithEntityName("No")).error().text,
            "no entity named No");
}

TEST_F(Context, ARowIsOneObjectWhileSomebodyHoldsIt) {
  auto first = insertThing(*context, "first");
  insertThing(*context, "second");
  EXPECT_TRUE(first->isInserted());
  ASSERT_TRUE(context->save());
  EXPECT_FALSE(first->isInserted());
  EXPECT_EQ(things(*context)[0], first);
  // Another process changes the row; the object follows, unless it has changes of its own.
  test::sql(folder / "s", "UPDATE Thing SET name = name || '!'");
  EXPECT_THAT(names(things(*context)), ElementsAre("first!", "second!"));
  EXPECT_EQ(names({first})[0], "first!");
  first->setValue_forKey(std::string("mine"), "name");
  EXPECT_TRUE(first->isUpdated());
  EXPECT_THAT(names(things(*context)), ElementsAre("mine", "second!"));
}

TEST_F(Context, DeletedObjectsKeepTheirValuesAndDoNotComeBack) {
  auto kept = insertThing(*context, "kept");
  ASSERT_TRUE(context->save());
  EXPECT_EQ(context->deleteAllObjects("Thing"), true);
  EXPECT_TRUE(kept->isDeleted());
  EXPECT_EQ(context->deleteAllObjects("Thing"), false);
  insertThing(*context, "new");
  ASSERT_TRUE(context->save());
  EXPECT_FALSE(context->hasChanges());
  kept->setValue_forKey(std::string("changed"), "name");
  EXPECT_FALSE(context->hasChanges());
  ASSERT_EQ(things(*context).size(), 1U);
  EXPECT_NE(things(*context)[0], kept);
  EXPECT_THAT(test::sql(folder / "s", "SELECT name FROM Thing"), ElementsAre("new"));
  context.reset();
  EXPECT_EQ(names({kept})[0], "changed");
}

// What another process adds between the deletion and the save was never seen, so it stays.
TEST_F(Context, ADeletionOfEverythingSparesRowsAddedMeanwhile) {
  insertThing(*context, "old");
  ASSERT_TRUE(context->save());
  context->deleteAllObjects("Thing");
  test::sql(folder / "s", "INSERT INTO Thing (name) VALUES ('meanwhile')");
  const auto found = things(*context);
  EXPECT_THAT(names(found), ElementsAre("meanwhile"));
  ASSERT_TRUE(context->save());
  // It is still the row's one object.
  EXPECT_EQ(things(*context), found);
  found[0]->setValue_forKey(std::string("changed"), "name");
  ASSERT_TRUE(context->save());
  EXPECT_THAT(test::sql(folder / "s", "SELECT name FROM Thing"), ElementsAre("changed"));
}

TEST_F(Context, NoRowGetsTheNumberOfADeletedOne) {
  auto other = test::openContext(folder / "s");
  insertThing(*context, "1");
  insertThing(*context, "2");
  ASSERT_TRUE(context->save());
  // What another process empties and fills again is not taken for what was there.
  context->deleteAllObjects("Thing");
  other->deleteAllObjects("Thing");
  ASSERT_TRUE(other->save());
  insertThing(*other, "3");
  ASSERT_TRUE(other->save());
  ASSERT_TRUE(context->save());
  EXPECT_THAT(test::sql(folder / "s", "SELECT rowid, name FROM Thing"), ElementsAre("3|3"));
  context->deleteObject(things(*context)[0]);
  ASSERT_TRUE(context->save());
  context->deleteAllObjects("Thing");
  ASSERT_TRUE(context->save());
  insertThing(*context, "4");
  insertThing(*context, "5");
  ASSERT_TRUE(context->save());
  EXPECT_THAT(test::sql(folder / "s", "SELECT rowid, name FROM Thing"), ElementsAre("4|4", "5|5"));
  context->deleteObject(things(*context)[1]);
  ASSERT_TRUE(context->save());
  insertThing(*context, "6");
  ASSERT_TRUE(context->save());
  EXPECT_THAT(test::sql(folder / "s", "SELECT rowid, name FROM Thing"), ElementsAre("4|4", "6|6"));
}

TEST(Model, WhatIsNoCompiledModelIsNone) {
  for (const char* text :
       {"", "name string\n", "entity\n", "entity A\n", "entity A\nname\n", "entity A\nname text\n",
        "entity A\nname string more\n", "entity A\nrowid integer\n", "entity A\nna\"me string\n",
        "entity A\nb string\nb integer\n", "entity A\nb string\nentity A\nc string\n", "\n"}) {
    EXPECT_EQ(modelOf(text), nullptr) << text;
  }
}

TEST(Model, EveryDifferenceShowsInTheFingerprint) {
  const auto fingerprint = [](const char* text) { return modelOf(text)->fingerprint(); };
  const auto base = fingerprint("entity A\nb string\nc integer\n");
  EXPECT_EQ(base, fingerprint("entity A\n  b   string\n  c integer\n"));
  for (const char* other :
       {"entity A\nb string\nc unsigned\n", "entity A\nc integer\nb string\n", "entity A\nb string\n",
        "entity A\nb string\nentity B\nc integer\n", "entity AB\nb string\nc integer\n"}) {
    EXPECT_NE(base, fingerprint(other)) << other;
  }
}

TEST(Model, MergingRefusesAMissingModelAndTwoEntitiesOfOneName) {
  const auto a = modelOf("entity A\nb string\n");
  const auto b = modelOf("entity B\nb string\n");
  EXPECT_EQ(platform::NSManagedObjectModel::modelByMergingModels({a, b})->entities().size(), 2U);
  EXPECT_THROW(platform::NSManagedObjectModel::modelByMergingModels({a, nullptr}),
               NSInvalidArgumentException);
  EXPECT_THROW(platform::NSManagedObjectModel::modelByMergingModels({a, a}), NSInvalidArgumentException);
}

}  // namespace
