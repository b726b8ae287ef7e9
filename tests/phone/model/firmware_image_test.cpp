#include "model/firmware_image.h"
#include "temporary_folder.h"

#include <gtest/gtest.h>

using namespace phone;

namespace {

std::string imageOf(const std::string& version, const std::string& payload) {
    std::string image;
    EXPECT_TRUE(writeImage(version, payload, [&image](std::string_view piece) {
        EXPECT_LE(piece.size(), 4096u);
        image += piece;
        return true;
    }));
    return image;
}

class FirmwareImage : public ::testing::Test {
protected:
    // Returns the version of a valid image, or the name of its fault.
    std::string check(const std::string& image) const {
        writeTextFile(folder.file("image"), image);
        const ImageCheck result = checkImage(folder.file("image"));
        EXPECT_EQ(result.version.empty(), result.fault != ImageFault::none);
        return result.fault == ImageFault::none ? result.version : nameOf(result.fault);
    }

    TemporaryFolder folder;
};

} // namespace

TEST_F(FirmwareImage, RoundTrips) {
    for (std::size_t size : {1u, 4095u, 4096u, 4097u, 100000u}) {
        EXPECT_EQ(check(imageOf("1.2.3", std::string(size, 'x'))), "1.2.3") << size;
    }
    EXPECT_EQ(check(imageOf("1234567890.12345", "x")), "1234567890.12345");
}

TEST_F(FirmwareImage, HasTheDocumentedFormat) {
    const std::string image = imageOf("1.2.3", "abc");
    const std::string header("DPFWIMG1Desk phone\0\0\0\0\0\0"
                             "1.2.3\0\0\0\0\0\0\0\0\0\0\0"
                             "\3\0\0\0",
                             44);
    EXPECT_EQ(image.substr(0, 47), header + "abc");
    EXPECT_EQ(image.size(), 51u);
}

TEST_F(FirmwareImage, IsTooShortWhereverItIsCut) {
    const std::string image = imageOf("1.2.3", "payload");
    for (std::size_t length = 0; length < image.size(); ++length) {
        EXPECT_EQ(check(image.substr(0, length)), "tooShort") << length;
    }
}

TEST_F(FirmwareImage, IsDamagedWhicheverBitIsFlipped) {
    const std::string image = imageOf("1.2.3", "payload");
    for (std::size_t i = 0; i < image.size(); ++i) {
        std::string other = image;
        other[i] = static_cast<char>(other[i] ^ 1);
        EXPECT_NE(check(other), "1.2.3") << i;
    }
    std::string other = image;
    other[46] ^= 1;
    EXPECT_EQ(check(other), "damaged");
    EXPECT_EQ(check(image + "x"), "damaged");
}

TEST_F(FirmwareImage, IsDistinguishedFromOtherFilesAndModels) {
    EXPECT_EQ(check("PK\3\4 an archive, longer than the header of an image"), "notAnImage");
    EXPECT_EQ(check("x"), "notAnImage");
    std::string image = imageOf("1.2.3", "payload");
    EXPECT_EQ(check(image.replace(8, 4, "Wall")), "otherModel");
    image = imageOf("1.2.3", "payload");
    EXPECT_EQ(check(image.replace(24, 1, "x")), "notAnImage");
    image = imageOf("1.2.3", "payload");
    EXPECT_EQ(check(image.replace(40, 4, std::string(4, '\xFF'))), "notAnImage");
    image = imageOf("1.2.3", "payload");
    EXPECT_EQ(check(image.replace(40, 4, std::string(4, '\0'))), "notAnImage");
}

TEST_F(FirmwareImage, IsUnreadableIfTheFileIsMissing) {
    EXPECT_EQ(checkImage(folder.file("missing")).fault, ImageFault::unreadable);
    EXPECT_EQ(checkImage(folder.file("")).fault, ImageFault::unreadable);
}

TEST_F(FirmwareImage, IsNotWrittenBeyondItsLimits) {
    const auto refuse = [](std::string_view) {
        ADD_FAILURE() << "something was written";
        return true;
    };
    EXPECT_FALSE(writeImage("", "x", refuse));
    EXPECT_FALSE(writeImage("12345678901234567", "x", refuse));
    EXPECT_FALSE(writeImage("1.2-beta", "x", refuse));
    EXPECT_FALSE(writeImage("1.2", "", refuse));
}

TEST_F(FirmwareImage, IsWrittenUntilTheOutputFails) {
    for (int taken = 0; taken < 4; ++taken) {
        int pieces = 0;
        EXPECT_FALSE(writeImage("1.2.3", std::string(5000, 'x'),
                                [&](std::string_view) { return pieces++ < taken; }));
        EXPECT_EQ(pieces, taken + 1);
    }
}
