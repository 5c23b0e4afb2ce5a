#include "sim/ColourBars.h"
#include "sim/ServiceFault.h"

#include <cerrno>
#include <cstdio>
#include <gtest/gtest.h>
#include <jpeglib.h>
#include <map>
#include <vector>

using namespace sim;

TEST(ServiceFault, DiceRepeatThemselvesAndKeepTheirShare) {
  FaultDice none, some(5, 10), same(5, 10), other(6, 10);
  std::map<ServiceFault::Kind, int> counts;
  bool differ = false;
  for (int i = 0; i < 10000; ++i) {
    const ServiceFault fault = some.roll();
    ++counts[fault.kind];
    EXPECT_EQ(fault.text(), same.roll().text());
    differ |= fault.text() != other.roll().text();
    EXPECT_EQ(none.roll().kind, ServiceFault::none);
  }
  EXPECT_TRUE(differ);
  EXPECT_NEAR(counts[ServiceFault::none], 9000, 200);
  EXPECT_EQ(counts.size(), 7U) << "all but a full and an absent queue";
}

TEST(ColourBars, AreARealPictureOfThatSize) {
  const std::string path = testing::TempDir() + "bars-" + std::to_string(getpid()) + ".jpg";
  for (const auto& [width, height] : {std::pair{160U, 120U}, {1U, 1U}, {1920U, 1080U}}) {
    ASSERT_EQ(storeColourBars(path, width, height), 0);
    FILE* const file = fopen(path.c_str(), "rb");
    jpeg_decompress_struct jpeg = {};
    jpeg_error_mgr errors = {};
    jpeg.err = jpeg_std_error(&errors); // ends the process for a broken file
    jpeg_create_decompress(&jpeg);
    jpeg_stdio_src(&jpeg, file);
    jpeg_read_header(&jpeg, TRUE);
    jpeg_start_decompress(&jpeg);
    EXPECT_EQ(jpeg.output_width, width);
    EXPECT_EQ(jpeg.output_height, height);
    std::vector<JSAMPLE> row(size_t{width} * 3);
    JSAMPLE* rows = row.data();
    while (jpeg.output_scanline < height)
      jpeg_read_scanlines(&jpeg, &rows, 1);
    jpeg_finish_decompress(&jpeg);
    EXPECT_EQ(errors.num_warnings, 0);
    jpeg_destroy_decompress(&jpeg);
    fclose(file);
    for (unsigned bar = 0; bar < 8 && width > 1; ++bar) { // from white to black, as on a test screen
      const JSAMPLE* pixel = &row[size_t{3} * (width * bar / 8 + width / 16)];
      EXPECT_EQ(pixel[0] > 127, bar % 4 < 2) << "red of bar " << bar;
      EXPECT_EQ(pixel[1] > 127, bar < 4) << "green of bar " << bar;
      EXPECT_EQ(pixel[2] > 127, bar % 2 == 0) << "blue of bar " << bar;
    }
  }
  EXPECT_EQ(unlink(path.c_str()), 0);
  EXPECT_EQ(storeColourBars("/nowhere/x.jpg", 8, 8), ENOENT);
}
