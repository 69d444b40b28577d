// The text trace's configuration syntax, line format and zero-cost disabled
// levels, and the fast-trace file round trip through its decoder.
#include "platform/trace/Trace.h"

#include <gtest/gtest.h>

#include <vector>

#include <fstream>
#include <sstream>

#include "platform/trace/Zipmark.h"
#include "platform/trace/ZipmarkDecoder.h"

namespace {

struct Traces : ::testing::Test {
   std::vector<Vok::TraceLine> lines;
   void SetUp() override {
      Vok::traceSinkIs([this](const Vok::TraceLine& l) { lines.push_back(l); });
   }
   void TearDown() override {
      Vok::traceConfigIs("");
      Vok::traceSinkIs(nullptr);
   }
};

namespace Routing {
struct Widget {
   void handleThing(const Vok::TraceHandle& h, int n) { VOK_TRACE(h, 8, "red", "n=" << n); }
};
}  // namespace Routing

TEST_F(Traces, LinesCarryQualifiedMethodLineObjectAndMessage) {
   Vok::TraceHandle handle("TestHandleA");
   Vok::traceConfigIs("TestHandleA/8");
   Routing::Widget().handleThing(handle, 5);
   ASSERT_EQ(lines.size(), 1u);
   EXPECT_EQ(lines[0].level, 8);
   EXPECT_TRUE(lines[0].text.starts_with("{anonymous}::Routing::Widget::handleThing:"))
         << lines[0].text;
   EXPECT_TRUE(lines[0].text.ends_with(" [red] n=5")) << lines[0].text;
}

TEST_F(Traces, DisabledLevelsFormatNothing) {
   Vok::TraceHandle handle("TestHandleB");
   Vok::traceConfigIs("TestHandleB/0-7");
   int evaluated = 0;
   auto costly = [&] { return ++evaluated; };
   VOK_TRACE(handle, 8, "x", costly());
   VOK_TRACE(handle, 7, "x", costly());
   EXPECT_EQ(evaluated, 1);
   EXPECT_EQ(lines.size(), 1u);
}

TEST_F(Traces, ConfigSyntaxSelectsHandlesAndLevels) {
   Vok::TraceHandle a("TestHandleC"), b("TestHandleD");
   struct Row {
      const char* config;
      bool a0, a8, b9;
   };
   for (Row row : {Row{"TestHandleC", true, true, false}, Row{"*/9", false, false, true},
                   Row{"TestHandleC/0,7-8,TestHandleD/9", true, true, true},
                   Row{"", false, false, false}}) {
      SCOPED_TRACE(row.config);
      Vok::traceConfigIs(row.config);
      EXPECT_EQ(a.enabled(0), row.a0);
      EXPECT_EQ(a.enabled(8), row.a8);
      EXPECT_EQ(b.enabled(9), row.b9);
   }
   for (const char* bad : {"X/", "X/a", "X/9-1", "/3"}) {
      EXPECT_THROW(Vok::traceConfigIs(bad), std::invalid_argument) << bad;
   }
}

TEST(QualifiedFunctionName, StripsReturnTypeAndParameters) {
   EXPECT_EQ(Vok::qualifiedFunctionName("void A::B::f(int, std::map<int, int>)"), "A::B::f");
   EXPECT_EQ(Vok::qualifiedFunctionName("std::pair<int, bool> A::g() const"), "A::g");
   EXPECT_EQ(Vok::qualifiedFunctionName("A::C::C(int)"), "A::C::C");
   EXPECT_EQ(Vok::qualifiedFunctionName("void A::operator()(int)"), "A::operator()");
   EXPECT_EQ(Vok::qualifiedFunctionName("void A::Watcher<Family>::handle() [with Family = B]"),
             "A::Watcher::handle");
}

TEST(Zipmark, RecordsDecodeToLabelledText) {
   std::string name = ::testing::TempDir() + "zipmark-%d.zm";
   Zipmark::initialize({.nameFormat = name});
   Zipmark::levelsIs("1");
   ZIPMARK(1, "handleActiveAddress", Zipmark::text("vrf=", "red"),
           Zipmark::text(" intf=", "Ethernet1"), Zipmark::am4(" addr=", 0x0A010105, 24),
           Zipmark::am6(" a6=", {0x20, 0x01, 0x0d, 0xb8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1}, 64),
           Zipmark::integer(" n=", -3), Zipmark::boolean(" missing=", true));
   ZIPMARK(2, "notRecorded", Zipmark::text("x=", "y"));
   Zipmark::flush();
   std::ifstream in(Zipmark::fileName(), std::ios::binary);
   std::ostringstream out;
   Zipmark::decode(in, out);
   EXPECT_EQ(out.str(),
             "1 handleActiveAddress vrf=red intf=Ethernet1 addr=10.1.1.5/24 a6=2001:db8::1/64 "
             "n=-3 missing=true\n");
   Zipmark::levelsIs("");
   std::remove(Zipmark::fileName().c_str());
}

// One record: level 1, method "m", fields as given (label, boolean kind 3, value 1).
std::string record(const std::vector<std::string>& labels, const std::string& junk = "") {
   std::string payload = std::string("\x01", 1) + static_cast<char>(labels.size()) + "\x01m";
   for (const std::string& label : labels) {
      payload += static_cast<char>(label.size()) + label + std::string("\x03\x01", 2);
   }
   payload += junk;
   return std::string(1, static_cast<char>(payload.size())) + std::string(1, '\0') + payload;
}

TEST(Zipmark, DecoderSeparatesFieldsWhateverTheirLabelsCarry) {
   std::istringstream in("ZMK1\n" + record({"a=", "b=", "  c="}));
   std::ostringstream out;
   Zipmark::decode(in, out);
   EXPECT_EQ(out.str(), "1 m a=true b=true c=true\n");
}

TEST(Zipmark, DecoderRejectsBadFilesNamingByteOffsetsFromTheFilesStart) {
   struct Row {
      std::string name;
      std::string file;
      std::string message;  // a part of the error
   };
   const std::string first = "ZMK1\n" + record({"a="});  // 5 + 2 + 9 bytes
   for (const Row& row : std::vector<Row>{
              {"foreign", "hello", "bad magic at byte 0"},
              {"cut short", first + std::string("\x09\x00\x01", 3), "cut short at byte 18"},
              {"junk after the fields", first + record({"b="}, "xyz"),
               "3 bytes of junk after the fields of the record at byte 16, from byte 27"},
              {"unknown kind", first + std::string("\x07\x00\x01\x01\x01m\x01" "a\x09", 9),
               "unknown field kind at byte 24 in the record at byte 16"},
        }) {
      SCOPED_TRACE(row.name);
      std::istringstream in(row.file);
      std::ostringstream out;
      try {
         Zipmark::decode(in, out);
         ADD_FAILURE() << "decoded";
      } catch (const std::runtime_error& e) {
         EXPECT_NE(std::string(e.what()).find(row.message), std::string::npos) << e.what();
      }
   }
}

}  // namespace
