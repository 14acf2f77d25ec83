// An archive byte for byte, put together by hand from the format's description.
#include "Support/PropertyLists.h"
#include "Values/KeyedArchive.h"

#include <gtest/gtest.h>

namespace moxel {
namespace {

using namespace std::string_literals;

// The archive of {"req" = "regclient"; "list" = ("regclient", 1)}, where "regclient" is one object. UIDs: 1
// the root, 2 and 3 its keys, 4 "regclient", 5 the list, 6 the number, 7 the class of the list, which is
// complete first, 8 that of the root. The container's own object numbers, in hexadecimal, stand on the left.
const std::string expected =
    "bplist00"s
    "\xD4\x01\x02\x03\x04\x05\x06\x07\x0A"                         // 00 root, four keys, four values
    "\x58$version"                                                 // 01
    "\x59$archiver"                                                // 02
    "\x54$top"                                                     // 03
    "\x58$objects"                                                 // 04
    "\x12\x00\x01\x86\xA0"                                         // 05 100000
    "\x5F\x10\x0FNSKeyedArchiver"                                  // 06
    "\xD1\x08\x09"                                                 // 07 $top
    "\x54root"                                                     // 08
    "\x80\x01"                                                     // 09 UID 1
    "\xA9\x0B\x0C\x17\x18\x19\x1A\x1E\x1F\x25"                     // 0A $objects
    "\x55$null"                                                    // 0B UID 0 ...
    "\xD3\x0D\x0E\x0F\x10\x13\x16"                                 // 0C UID 1, the root
    "\x57NS.keys"                                                  // 0D
    "\x5ANS.objects"                                               // 0E
    "\x56$class"                                                   // 0F
    "\xA2\x11\x12"                                                 // 10
    "\x80\x02"                                                     // 11 UID 2
    "\x80\x03"                                                     // 12 UID 3
    "\xA2\x14\x15"                                                 // 13
    "\x80\x04"                                                     // 14 UID 4
    "\x80\x05"                                                     // 15 UID 5
    "\x80\x08"                                                     // 16 UID 8
    "\x53req"                                                      // 17 UID 2
    "\x54list"                                                     // 18 UID 3
    "\x59regclient"                                                // 19 UID 4
    "\xD2\x0E\x0F\x1B\x1D"                                         // 1A UID 5, the list
    "\xA2\x14\x1C"                                                 // 1B
    "\x80\x06"                                                     // 1C UID 6
    "\x80\x07"                                                     // 1D UID 7
    "\x10\x01"                                                     // 1E UID 6
    "\xD2\x20\x21\x22\x23"                                         // 1F UID 7, a class
    "\x5A$classname"                                               // 20
    "\x58$classes"                                                 // 21
    "\x57NSArray"                                                  // 22
    "\xA2\x22\x24"                                                 // 23
    "\x58NSObject"                                                 // 24
    "\xD2\x20\x21\x26\x27"                                         // 25 UID 8, a class
    "\x5CNSDictionary"                                             // 26
    "\xA2\x26\x24"                                                 // 27
    "\x08\x11\x1A\x24\x29\x32\x37\x49\x4C\x51\x53\x5D\x63\x6A\x72" // where each object begins
    "\x7D\x84\x87\x89\x8B\x8E\x90\x92\x94\x98\x9D\xA7\xAC\xAF\xB1"
    "\xB3\xB5\xBA\xC5\xCE\xD6\xD9\xE2\xE7\xF4"
    "\0\0\0\0\0\0\x01\x01" // offsets and references of one byte
    "\0\0\0\0\0\0\0\x28"   // 40 objects
    "\0\0\0\0\0\0\0\0"     // of which the first is the top one
    "\0\0\0\0\0\0\0\xF7"s; // where the offsets begin

TEST(KeyedArchive, IsWrittenByteForByte) {
    const String text = "regclient";
    const Result<Data> archive =
        archivedDataWithRootObject(Dictionary{{"req", text}, {"list", Array{text, 1}}});
    ASSERT_TRUE(archive);
    EXPECT_EQ(test::asText(*archive), expected);
}

TEST(KeyedArchive, ReadsTheArchivePutTogetherByHand) {
    const Result<Value> root = unarchiveObjectWithData(test::asBytes(expected));
    ASSERT_TRUE(root) << root.error().message;
    EXPECT_EQ(*root, Value(Dictionary{{"req", "regclient"}, {"list", Array{"regclient", 1}}}));
    EXPECT_EQ(root->asDictionary()["req"].node(), root->asDictionary()["list"].asArray()[0].node());
}

} // namespace
} // namespace moxel
