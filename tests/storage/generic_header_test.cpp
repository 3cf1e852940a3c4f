#include "storage/generic_header.h"

#include <gtest/gtest.h>

#include <array>

#include "tests/support/bytes.h"
#include "tests/support/debug_log.h"
#include "tests/support/log_capture.h"

namespace tabulo::internal::test {
namespace {

// "KestrovaDb", little-endian, 5.800, header size 140.
const char* const goldenHeader = "4b 65 73 74 72 6f 76 61 44 62 01 05 00 20 03 8c 00 00 00";

class GenericHeader : public ::testing::Test {
  protected:
    void SetUp() override { tsgh_init(&header, 140); }

    // The code of a header that differs from a good one in a few bytes.
    ErrorCode verifyWith(std::size_t offset, const Bytes& bytes) {
        Bytes stored = fromHex(goldenHeader);
        std::copy(bytes.begin(), bytes.end(), stored.begin() + static_cast<std::ptrdiff_t>(offset));
        KSVByteStream stream;
        byteStream_init(&stream, stored.data(), static_cast<std::int32_t>(stored.size()));
        byteStream_resetWrite(&stream, GENERIC_HEADER_SIZE);
        EXPECT_EQ(tsgh_read(&header, &stream), NO_ERROR);
        return tsgh_verify(&header);
    }

    TableGenericHeader header;
    const LogCapture log;
};

TEST_F(GenericHeader, IsWrittenAsNineteenBytes) {
    const ByteStreamPtr stream(byteStream_create(4));
    EXPECT_EQ(tsgh_write(&header, stream.get()), NO_ERROR);
    ASSERT_EQ(byteStream_writeMark(stream.get()), 19);
    EXPECT_EQ(toHex({byteStream_buffer(stream.get()), 19}), goldenHeader);
}

TEST_F(GenericHeader, IsReadFieldByField) {
    EXPECT_EQ(verifyWith(13, fromHex("21 03 39 30 00 00")), HEADER_CORRUPTED_ERROR);
    EXPECT_EQ(std::string(header.signature.begin(), header.signature.end()), "KestrovaDb");
    EXPECT_EQ(header.byteOrder, 1);
    EXPECT_EQ(header.versionMajor, 5);
    EXPECT_EQ(header.versionMinor, 801);
    EXPECT_EQ(header.headerSize, 12345);
}

TEST_F(GenericHeader, IsNotReadFromEighteenBytes) {
    Bytes stored = fromHex(goldenHeader);
    KSVByteStream stream;
    byteStream_init(&stream, stored.data(), 19);
    byteStream_resetWrite(&stream, 18);
    EXPECT_EQ(tsgh_read(&header, &stream), STREAM_NOT_ENOUGH_DATA_ERROR);
}

TEST_F(GenericHeader, ThatDoesNotFitGivesTheStreamsError) {
    std::array<std::uint8_t, 18> buffer{};
    KSVByteStream stream;
    byteStream_init(&stream, buffer.data(), 18);
    EXPECT_EQ(tsgh_write(&header, &stream), STREAM_EXTENSION_ERROR);
}

TEST_F(GenericHeader, OfThisMachineVerifies) {
    EXPECT_EQ(tsgh_verify(&header), NO_ERROR);
    EXPECT_EQ(verifyWith(0, {}), NO_ERROR);
    EXPECT_TRUE(log.all().empty());
}

TEST_F(GenericHeader, WithAnotherSignatureIsRefused) {
    EXPECT_EQ(verifyWith(0, fromText("k")), SIGNATURE_ERROR);
    EXPECT_EQ(verifyWith(9, fromText("B")), SIGNATURE_ERROR);
    EXPECT_EQ(verifyWith(0, Bytes(19, 0)), SIGNATURE_ERROR);
}

TEST_F(GenericHeader, OfAnotherByteOrderIsRefused) {
    EXPECT_EQ(verifyWith(10, fromHex("02")), BYTE_ORDER_ERROR);
    EXPECT_EQ(verifyWith(10, fromHex("00")), BYTE_ORDER_ERROR);
    EXPECT_EQ(verifyWith(10, fromHex("ff")), BYTE_ORDER_ERROR);
}

TEST_F(GenericHeader, MinorVersions800To899AreAccepted) {
    EXPECT_EQ(verifyWith(13, fromHex("20 03")), NO_ERROR);  // 800
    EXPECT_EQ(verifyWith(13, fromHex("52 03")), NO_ERROR);  // 850
    EXPECT_EQ(verifyWith(13, fromHex("83 03")), NO_ERROR);  // 899
    EXPECT_TRUE(log.all().empty());
}

TEST_F(GenericHeader, MinorVersion900IsRefusedWithAWarning) {
    EXPECT_EQ(verifyWith(13, fromHex("84 03")), VERSION_ERROR);
    EXPECT_EQ(log.all(), std::vector<std::string>{
                             warningLine("tsgh_verify", "Expected table version: 5.800, actual table version: 5.900")});
}

TEST_F(GenericHeader, OtherVersionsAreRefused) {
    EXPECT_EQ(verifyWith(13, fromHex("1f 03")), VERSION_ERROR);  // 799
    EXPECT_EQ(verifyWith(13, fromHex("ff ff")), VERSION_ERROR);
    EXPECT_EQ(verifyWith(11, fromHex("04 00")), VERSION_ERROR);
    EXPECT_EQ(verifyWith(11, fromHex("06 00")), VERSION_ERROR);
    EXPECT_EQ(verifyWith(11, fromHex("05 01")), VERSION_ERROR);
    EXPECT_EQ(log.warnings().back(),
              warningLine("tsgh_verify", "Expected table version: 5.800, actual table version: 261.800"));
}

TEST_F(GenericHeader, HeaderSizesFrom36To8096AreAccepted) {
    EXPECT_EQ(verifyWith(15, fromHex("24 00 00 00")), NO_ERROR);  // 36
    EXPECT_EQ(verifyWith(15, fromHex("a0 1f 00 00")), NO_ERROR);  // 8096
}

TEST_F(GenericHeader, OtherHeaderSizesAreCorrupted) {
    EXPECT_EQ(verifyWith(15, fromHex("23 00 00 00")), HEADER_CORRUPTED_ERROR);  // 35
    EXPECT_EQ(verifyWith(15, fromHex("a1 1f 00 00")), HEADER_CORRUPTED_ERROR);  // 8097
    EXPECT_EQ(verifyWith(15, fromHex("00 00 00 00")), HEADER_CORRUPTED_ERROR);
    EXPECT_EQ(verifyWith(15, fromHex("ff ff ff ff")), HEADER_CORRUPTED_ERROR);  // -1
    EXPECT_EQ(verifyWith(15, fromHex("8c 00 00 80")), HEADER_CORRUPTED_ERROR);
}

TEST_F(GenericHeader, ChecksGoSignatureByteOrderVersionSize) {
    EXPECT_EQ(verifyWith(0, Bytes(19, 0xff)), SIGNATURE_ERROR);
    EXPECT_EQ(verifyWith(10, Bytes(9, 0xff)), BYTE_ORDER_ERROR);
    EXPECT_EQ(verifyWith(11, Bytes(8, 0xff)), VERSION_ERROR);
}

}  // namespace
}  // namespace tabulo::internal::test
