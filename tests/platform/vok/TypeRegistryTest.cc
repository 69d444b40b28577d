// Generic text form, parse, hash and construction through the registry, and
// directories that create entities by type name.
#include "platform/vok/TypeRegistry.h"

#include <gtest/gtest.h>

#include <string>

#include "platform/vok/Dir.h"

namespace {

struct Sample {
   int value = 0;
   std::string toString() const { return "Sample(" + std::to_string(value) + ")"; }
   static Sample parse(std::string_view text) {
      if (!text.starts_with("Sample(") || !text.ends_with(")")) {
         throw Vok::ParseError("bad Sample '" + std::string(text) + "'", "value");
      }
      return Sample{std::stoi(std::string(text.substr(7, text.size() - 8)))};
   }
   std::uint32_t hash() const { return std::uint32_t(value) * 2654435761u; }
};

class Widget final : public Vok::Entity {
 public:
   explicit Widget(std::string name) : name_(std::move(name)) {}
   const std::string& name() const { return name_; }

 private:
   std::string name_;
};

const bool registered = [] {
   Vok::registerValueType<Sample>("Test::HashableSample", {"value"}, Vok::Hashable::yes);
   Vok::registerValueType<Sample>("Test::PlainSample", {"value"});
   Vok::registerEntityType<Widget>("Test::Widget", {"name"});
   return true;
}();

TEST(TypeRegistry, GivesTextFormParseAndHashByTypeName) {
   ASSERT_TRUE(registered);
   std::any value = Sample{42};
   EXPECT_EQ(Vok::genericStrep("Test::HashableSample", value), "Sample(42)");
   auto parsed = std::any_cast<Sample>(Vok::genericParse("Test::HashableSample", "Sample(7)"));
   EXPECT_EQ(parsed.value, 7);
   EXPECT_EQ(Vok::genericHash("Test::HashableSample", value), Sample{42}.hash());
   EXPECT_EQ(Vok::TypeRegistry::instance().type("Test::HashableSample").attributes,
             std::vector<std::string>{"value"});
}

TEST(TypeRegistry, HashOfAnUnhashableTypeRaises) {
   std::any value = Sample{1};
   EXPECT_THROW(Vok::genericHash("Test::PlainSample", value), Vok::UnhashableTypeError);
}

TEST(TypeRegistry, FailedParseNamesTheAttributeAndUnknownTypesAreNamed) {
   try {
      Vok::genericParse("Test::PlainSample", "Sample[1]");
      FAIL() << "parsed";
   } catch (const Vok::ParseError& e) {
      EXPECT_EQ(e.attribute(), "value");
   }
   try {
      Vok::genericParse("Test::Nothing", "x");
      FAIL() << "parsed";
   } catch (const std::out_of_range& e) {
      EXPECT_STREQ(e.what(), "unknown type 'Test::Nothing'");
   }
}

TEST(TypeRegistry, RegisteringANameTwiceIsFatal) {
   EXPECT_DEATH(Vok::registerValueType<Sample>("Test::PlainSample", {}), "type registered twice");
}

class DirWatcher final : public Vok::Reactor<Vok::Dir> {
 public:
   using Vok::Reactor<Vok::Dir>::Reactor;
   void onEntity(const std::string& name) override { seen.push_back(name); }
   std::vector<std::string> seen;
};

TEST(Dir, CreatesByTypeNameOnceAndNotifiesPerName) {
   auto dir = Vok::make<Vok::Dir>("status");
   DirWatcher watcher(dir);
   auto first = dir->entityIs<Widget>("red", "Test::Widget");
   auto again = dir->entityIs<Widget>("red", "Test::Widget");
   ASSERT_TRUE(first);
   EXPECT_EQ(first, again);
   EXPECT_EQ(first->name(), "red");
   EXPECT_THROW(dir->entityIs("red", "Test::Other"), std::logic_error);
   EXPECT_TRUE(dir->entityDel("red"));
   EXPECT_FALSE(dir->entityDel("red"));
   EXPECT_EQ(watcher.seen, (std::vector<std::string>{"red", "red"}));
   EXPECT_EQ(first->references(), 2u);  // still held here, no longer by the directory
}

}  // namespace
