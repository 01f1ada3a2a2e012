#include "tests/coredata/StoreFixture.h"

namespace {

using platform::NSManagedObjectModel;
using test::modelOf;

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
  EXPECT_EQ(NSManagedObjectModel::modelByMergingModels({a, b})->entities().size(), 2U);
  EXPECT_THROW(NSManagedObjectModel::modelByMergingModels({a, nullptr}),
               platform::NSInvalidArgumentException);
  EXPECT_THROW(NSManagedObjectModel::modelByMergingModels({a, a}), platform::NSInvalidArgumentException);
}

}  // namespace
