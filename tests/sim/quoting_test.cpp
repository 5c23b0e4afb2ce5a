#include "sim/Quoting.h"

#include <gtest/gtest.h>

using namespace std::string_literals;

TEST(Quoting, EveryByteCanBeToldFromTheText) {
  const std::pair<std::string, std::string> cases[] = {
      {"", R"("")"},
      {"29", R"("29")"},
      {"4\0"s, R"("4\0")"},
      {"\0007"s, R"("\0007")"}, // \07 would be another byte
      {"\0008"s, R"("\08")"},
      {"63\n", R"("63\n")"},
      {"a\tb\rc\"d\\e'", R"("a\tb\rc\"d\\e'")"},
      {"\x01\x7f\x80\xff ~", R"("\001\177\200\377 ~")"},
  };
  for (const auto& [bytes, text] : cases) {
    EXPECT_EQ(sim::quoted(bytes), text);
    EXPECT_EQ(sim::unescaped(text.substr(1, text.size() - 2)), bytes) << text;
  }
  std::string all;
  for (int byte = 0; byte < 256; ++byte)
    all += static_cast<char>(byte);
  const std::string text = sim::quoted(all);
  EXPECT_EQ(sim::unescaped(std::string_view(text).substr(1, text.size() - 2)), all);
}

TEST(Quoting, UnescapingTakesTheLongestEscapeAndNoOther) {
  EXPECT_EQ(sim::unescaped(R"(\x41\x4g\1012\18)"), "A\004gA2\0018"s);
  for (const char* wrong : {R"(\)", R"(\q)", R"(\x)", R"(\xg)", R"(\400)", R"(ok\8)"}) {
    EXPECT_EQ(sim::unescaped(wrong), std::nullopt) << wrong;
  }
}
