// Digests and their texts.
#include "sha256.h"

#include "ams_config_util.h"
#include "support.h"

namespace {

/* Around the ends of a block the padding takes one block or two. */
TEST(Sha256, DigestsAreHexTexts) {
  const std::pair<std::string, std::string> cases[] = {
      {"", "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855"},
      {"0123456789abcdef0123456789abcdef",
       "3eb1bd439947eb762998e566ccc2e099c791118b2f40579cc4f7da2b5061b7f9"},
      {"\xff\x80", "85c61621ebd04403f66d96fe300cf10b3844de7358184f1276cb08790fd135f1"},
      {std::string(55, 'a'), "9f4390f8d30c2dd92ec9f095b65e2b9ae9b0a925a5258e241c9f1e910f734318"},
      {std::string(56, 'a'), "b35439a4ac6f0948b6d6f9e3c6af0f5f590ce20f1bde7090ef7970686ec6738a"},
      {std::string(64, 'a'), "ffe054fe7ae0cb6dc65c3af9b61d5209f439851db43d0ba5997337df154668eb"},
      {std::string(1000000, 'a'),
       "cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0"},
  };
  for (const auto &[input, digest] : cases) {
    char hex[65] = "untouched", *at = hex;
    const bool fits = input.size() <= 32;
    std::string log =
        LogOf(4, [&, text = input] { EXPECT_EQ(cfgSha256Hex(text.c_str(), hex), fits ? 0 : -1); });
    EXPECT_EQ(log.find("input is too long.") == log.npos, fits) << log;
    EXPECT_STREQ(hex, fits ? digest.c_str() : "untouched");
    for (uint8_t byte : Sha256(input.data(), input.size())) at += sprintf(at, "%02x", byte);
    EXPECT_EQ(hex, digest) << input.size();
  }
}

}  // namespace
