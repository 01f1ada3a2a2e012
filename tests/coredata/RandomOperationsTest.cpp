#include <algorithm>
#include <array>
#include <random>

#include "tests/coredata/StoreFixture.h"

namespace {

using platform::NSFetchRequest;
using platform::NSPredicate;
using test::names;
using test::things;

// Of the letters that the list holds, one stands for an absent name.
std::optional<std::string> nameOf(const std::string& letter) {
  return letter == "NULL" ? std::nullopt : std::optional(letter);
}

// The store beside a list that does the same.
class Twin {
 public:
  explicit Twin(unsigned seed) : random_(seed) { reopen(); }

  void step() {
    const std::string name = std::array{"a", "b", "B", "NULL"}.at(random_() % 4);
    switch (random_() % 10) {
      case 0:
      case 1:
      case 2:
        held_.push_back(test::insertThing(*context_, name));
        held_.back()->setValue_forKey(nameOf(name), "name");
        now_.push_back(name);
        break;
      case 3:
        change([&](auto& object, std::size_t i) {
          object->setValue_forKey(nameOf(name), "name");
          now_[i] = name;
        });
        break;
      case 4:
        change([&](auto& object, std::size_t i) {
          context_->deleteObject(object);
          now_.erase(now_.begin() + static_cast<std::ptrdiff_t>(i));
        });
        break;
      case 5:
        if (random_() % 4 != 0) break;
        EXPECT_EQ(context_->deleteAllObjects("Thing"), !now_.empty());
        now_.clear();
        break;
      case 6:
        ASSERT_TRUE(context_->save());
        saved_ = now_;
        break;
      case 7:
        held_.clear();
        break;
      case 8:
        if (random_() % 4 == 0) reopen();
        break;
      default:
        break;
    }
    compare(name);
  }

 private:
  void reopen() {
    held_.clear();
    context_ = test::openContext(folder_ / "s");
    now_ = saved_;
  }

  template <typename Change>
  void change(const Change& change) {
    if (now_.empty()) return;
    auto objects = things(*context_);
    const auto i = random_() % now_.size();
    ASSERT_LT(i, objects.size());
    change(objects[i], i);
    held_.push_back(objects[i]);
  }

  void compare(const std::string& name) {
    EXPECT_EQ(names(things(*context_)), now_);
    auto request = NSFetchRequest::fetchRequestWithEntityName("Thing");
    EXPECT_EQ(context_->countForFetchRequest_error(request), now_.size());
    std::vector<std::string> rows;
    context_->enumerateRows(request, [&](const platform::StoredRow& row) {
      const auto* text = std::get_if<std::string_view>(row.values.data());
      rows.emplace_back(text != nullptr ? *text : "NULL");
      return true;
    });
    EXPECT_EQ(rows, now_);
    request.setPredicate(NSPredicate::predicateWithFormat("name = %@", nameOf(name)));
    const auto found = *context_->executeFetchRequest_error(request);
    EXPECT_EQ(names(found), std::vector<std::string>(std::count(now_.begin(), now_.end(), name), name));
    EXPECT_EQ(context_->countForFetchRequest_error(request), found.size());
  }

  test::TemporaryFolder folder_;
  std::mt19937 random_;
  std::unique_ptr<platform::NSManagedObjectContext> context_;
  std::vector<std::shared_ptr<platform::NSManagedObject>> held_;
  std::vector<std::string> now_;
  std::vector<std::string> saved_;
};

TEST(RandomOperations, TheStoreDoesWhatAListDoes) {
  for (unsigned round = 0; round < 20; ++round) {
    const unsigned seed = std::random_device()();
    SCOPED_TRACE("seed " + std::to_string(seed));
    Twin twin(seed);
    for (int i = 0; i < 150 && !testing::Test::HasFailure(); ++i) twin.step();
  }
}

}  // namespace
