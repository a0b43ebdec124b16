#include <libEngine/Memory/CopyPastCache.h>

#include <gtest/gtest.h>

#include <cstddef>
#include <string>

namespace Brantel::Engine {
namespace {

TEST(CopyPastCacheTest, EveryByteArrivesWhereverTheBlocksLieInTheirLines) {
    std::string source(400, '\0');
    for (std::size_t index = 0; index < source.size(); ++index) {
        source[index] = static_cast<char>(index * 7 + 1);
    }
    for (const std::size_t size : {0, 1, 63, 64, 65, 127, 128, 200, 300}) {
        for (std::size_t shift = 0; shift < 70; ++shift) {
            std::string target(400, '.');
            CopyPastCache(target.data() + shift, source.data() + 3, size);
            std::string expected(400, '.');
            expected.replace(shift, size, source, 3, size);
            ASSERT_EQ(target, expected) << size << " bytes to " << shift;
        }
    }
}

}  // namespace
}  // namespace Brantel::Engine
