// The exception family: operation names and the exact texts that callers and users rely on.
#include "qmp/exception.h"

#include <gtest/gtest.h>

namespace {

TEST(Exception, CarriesOperationNameAndMessage) {
    try {
        throw qmp::InvalidParametersException("ConfigObject::sanitize_key()", "Key cannot be empty.");
    } catch (const qmp::Exception& e) {
        EXPECT_EQ(e.function(), "ConfigObject::sanitize_key()");
        EXPECT_EQ(e.message(), "Key cannot be empty.");
        EXPECT_STREQ(e.what(), "ConfigObject::sanitize_key(): Key cannot be empty.");
        EXPECT_STREQ(e.type_name(), "InvalidParametersException");
    }
}

TEST(Exception, BufferTooSmallText) {
    qmp::BufferTooSmallException e("fm_add_ir()", 64, 100);
    EXPECT_EQ(e.message(), "Buffer is too small:\n    Buffer Size: 64\n    Required Size: 100");
    EXPECT_EQ(e.buffer_size(), 64u);
    EXPECT_EQ(e.required_size(), 100u);
}

TEST(Exception, SubclassesAreCaughtByTheirBase) {
    EXPECT_THROW(throw qmp::BSRModularCheckFailedException("f()", "m."), qmp::AlgorithmFailedException);
    EXPECT_THROW(throw qmp::FarMemoryOutOfBoundsException("FarMemory::load()", "x", 1, 2, 3),
                 qmp::FarMemoryException);
    EXPECT_THROW(throw qmp::FileIO::FileException("RawFile()", "/p", "Disk is Full"), qmp::Exception);
}

}  // namespace
