// SHA-256 against the FIPS 180 examples on every block function this machine can run, fed
// whole and in uneven pieces; HMAC-SHA-256 against RFC 4231.
#include "app/report/sha256.h"

#include "qmp/cpu_features.h"

#include <gtest/gtest.h>

#include <string>
#include <algorithm>
#include <vector>

namespace {

using qv::Sha256;

std::vector<qmp::SimdLevel> runnable_levels() {
    std::vector<qmp::SimdLevel> levels;
    for (int l = 0; l <= static_cast<int>(qmp::detected_simd_level()); ++l) levels.push_back(qmp::SimdLevel(l));
    return levels;
}

// Restores the detected level when a test ends, also on failure.
struct LevelGuard {
    ~LevelGuard() { qmp::force_simd_level(qmp::detected_simd_level()); }
};

std::string hex_of(std::string_view text) { return Sha256::to_hex(Sha256::of(text)); }

TEST(Sha256, PublishedVectorsOnEveryPath) {
    LevelGuard guard;
    const std::string million_a(1000000, 'a');
    for (qmp::SimdLevel level : runnable_levels()) {
        SCOPED_TRACE(qmp::simd_level_name(level));
        qmp::force_simd_level(level);
        EXPECT_EQ(Sha256().uses_sha_extensions(), qv::cpu_has_sha_extensions() && level != qmp::SimdLevel::Portable);
        EXPECT_EQ(hex_of(""), "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
        EXPECT_EQ(hex_of("abc"), "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
        EXPECT_EQ(hex_of("abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq"),
                  "248d6a61d20638b8e5c026930c3e6039a33ce45964ff2167f6ecedd419db06c1");
        EXPECT_EQ(hex_of(million_a), "cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0");
        // The same million bytes in uneven pieces, crossing block boundaries everywhere.
        Sha256 pieces;
        for (size_t done = 0, step = 1; done < million_a.size(); done += step, step = step * 7 % 193 + 1) {
            pieces.update(million_a.data() + done, std::min(step, million_a.size() - done));
        }
        EXPECT_EQ(Sha256::to_hex(pieces.finish()), "cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0");
        // Reset reuses the hasher.
        pieces.reset();
        pieces.update("abc");
        EXPECT_EQ(Sha256::to_hex(pieces.finish()), "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
    }
}

TEST(Sha256, HmacPublishedVectors) {
    EXPECT_EQ(Sha256::to_hex(qv::hmac_sha256(std::string(20, '\x0b'), "Hi There")),
              "b0344c61d8db38535ca8afceaf0bf12b881dc200c9833da726e9376c2e32cff7");
    EXPECT_EQ(Sha256::to_hex(qv::hmac_sha256("Jefe", "what do ya want for nothing?")),
              "5bdcc146bf60754e6a042426089575c75a003f089d2739839dec58b964ec3843");
    // A key longer than the block is hashed first.
    EXPECT_EQ(Sha256::to_hex(qv::hmac_sha256(std::string(131, '\xaa'),
                                             "Test Using Larger Than Block-Size Key - Hash Key First")),
              "60e431591ee0b67f0d8a26aacbf5b77f8e0bc6213728c5140546040f0ee37f54");
}

}  // namespace
