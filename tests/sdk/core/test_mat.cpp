#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <vector>

#include "pv/mat.h"
#include "test_utils.h"

namespace {

TEST(Mat, CopiesShareMemoryAndFreeIsSafeFromEveryHolder) {
  pv::Mat a(8, 4, pv::MAT_TYPE::F32_C1);
  ASSERT_EQ(a.setTo(2.5f), pv::ERROR_CODE::SUCCESS);
  pv::Mat b = a;
  pv::Mat c;
  c = b;
  EXPECT_EQ(a.getPtr<float>(), b.getPtr<float>());
  EXPECT_EQ(a.useCount(), 3);
  *b.getPixel<float>(3, 2) = 7.f;
  EXPECT_EQ(*a.getPixel<float>(3, 2), 7.f);

  a.free();
  EXPECT_FALSE(a.isInit());
  a.free();  // twice from the same holder
  ASSERT_TRUE(b.isInit());
  EXPECT_EQ(*b.getPixel<float>(0, 0), 2.5f);  // still alive for the other holders
  EXPECT_EQ(b.useCount(), 2);
  b.free();
  c.free();
  EXPECT_FALSE(c.isInit());
  EXPECT_EQ(c.useCount(), 0);

  pv::Mat moved_from(4, 4, pv::MAT_TYPE::U8_C1);
  pv::Mat moved(std::move(moved_from));
  EXPECT_TRUE(moved.isInit());
  EXPECT_FALSE(moved_from.isInit());  // NOLINT: checking the moved-from state on purpose
}

TEST(Mat, NonOwningViewWritesIntoTheCallersMemory) {
  std::vector<unsigned char> buffer(10 * 4 * 6, 0);
  {
    pv::Mat view(pv::Resolution(10, 6), pv::MAT_TYPE::U8_C4, buffer.data(), 40, pv::MEM::CPU);
    EXPECT_FALSE(view.isMemoryOwner());
    ASSERT_EQ(view.setTo(pv::uchar4(1, 2, 3, 4)), pv::ERROR_CODE::SUCCESS);
    pv::Mat shared = view;
    shared.free();
    view.free();  // must not free the caller's memory
  }
  EXPECT_EQ(buffer[0], 1);
  EXPECT_EQ(buffer[buffer.size() - 1], 4);
  // A null pointer yields an empty Mat rather than a dangling one.
  pv::Mat none(pv::Resolution(4, 4), pv::MAT_TYPE::U8_C4, nullptr, 16, pv::MEM::CPU);
  EXPECT_FALSE(none.isInit());
}

TEST(Mat, CopiesBetweenMemoriesKeepEveryPixel) {
  std::mt19937 rng(3);
  for (const auto& [w, h] : {std::pair<size_t, size_t>{1, 1}, {37, 13}, {129, 65}}) {
    pv::Mat src(w, h, pv::MAT_TYPE::U8_C3);
    for (size_t y = 0; y < h; ++y)
      for (size_t x = 0; x < w; ++x) {
        auto* p = src.getPixel<pv::uchar3>(x, y);
        *p = pv::uchar3(rng() & 255, rng() & 255, rng() & 255);
      }
    pv::Mat gpu, back;
    ASSERT_EQ(src.copyTo(gpu, pv::COPY_TYPE::CPU_GPU), pv::ERROR_CODE::SUCCESS);
    ASSERT_EQ(back.setFrom(gpu, pv::COPY_TYPE::GPU_CPU), pv::ERROR_CODE::SUCCESS);
    for (size_t y = 0; y < h; ++y)
      EXPECT_EQ(0, std::memcmp(src.getPixel<unsigned char>(0, y), back.getPixel<unsigned char>(0, y), w * 3));
    // Copy into an existing Mat of the right size reuses its memory.
    unsigned char* before = back.getPtr<unsigned char>();
    ASSERT_EQ(src.copyTo(back), pv::ERROR_CODE::SUCCESS);
    EXPECT_EQ(before, back.getPtr<unsigned char>());
  }
  pv::Mat empty, dst;
  EXPECT_NE(empty.copyTo(dst), pv::ERROR_CODE::SUCCESS);
  EXPECT_NE(dst.alloc(0, 10, pv::MAT_TYPE::U8_C1), pv::ERROR_CODE::SUCCESS);
  EXPECT_FALSE(dst.isInit());
}

TEST(Mat, WritesAndReadsPng) {
  const std::string dir = mapura::test::scratchDir("mat_png");
  pv::Mat img(16, 8, pv::MAT_TYPE::U8_C4);
  ASSERT_EQ(img.setTo(pv::uchar4(255, 0, 0, 255)), pv::ERROR_CODE::SUCCESS);  // blue in BGRA
  ASSERT_EQ(img.write((dir + "/blue.png").c_str()), pv::ERROR_CODE::SUCCESS);
  pv::Mat back;
  ASSERT_EQ(back.read((dir + "/blue.png").c_str()), pv::ERROR_CODE::SUCCESS);
  EXPECT_EQ(back.getWidth(), 16u);
  EXPECT_EQ(back.getPixel<pv::uchar4>(5, 5)->x, 255);
  EXPECT_EQ(back.getPixel<pv::uchar4>(5, 5)->z, 0);
  EXPECT_NE(img.write("/nonexistent-folder/x.png"), pv::ERROR_CODE::SUCCESS);
  EXPECT_NE(back.read((dir + "/missing.png").c_str()), pv::ERROR_CODE::SUCCESS);
}

// Device memory and the CUDA fill kernel against the CPU fill; skipped without a device.
TEST(MatGpu, DeviceFillMatchesCpuFill) {
  if (!pv::isCudaDeviceAvailable()) GTEST_SKIP() << "no CUDA device";
  for (const auto& [w, h] : {std::pair<size_t, size_t>{1, 1}, {31, 17}, {1281, 723}}) {
    pv::Mat cpu(w, h, pv::MAT_TYPE::F32_C3), gpu(w, h, pv::MAT_TYPE::F32_C3, pv::MEM::GPU);
    ASSERT_FALSE(gpu.isGPUHostBacked());
    ASSERT_EQ(cpu.setTo(-1.25f), pv::ERROR_CODE::SUCCESS);
    ASSERT_EQ(gpu.setTo(-1.25f, pv::MEM::GPU), pv::ERROR_CODE::SUCCESS);
    ASSERT_EQ(gpu.updateCPUfromGPU(), pv::ERROR_CODE::SUCCESS);
    for (size_t y = 0; y < h; ++y)
      ASSERT_EQ(0, std::memcmp(cpu.getPixel<float>(0, y), gpu.getPixel<float>(0, y), w * 12));
  }
}

}  // namespace
