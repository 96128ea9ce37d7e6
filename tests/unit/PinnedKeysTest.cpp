// The shape of the pinned key lists as built at start-up from the data file.
#include "security/trust/PinnedKeys.h"

#include <algorithm>
#include <map>
#include <set>
#include <string_view>

#include <gtest/gtest.h>

using Tessel::Bridge::Security::PublicKeyList;
using namespace Tessel::Bridge::Security::PinnedKeys;

namespace {

// 2048 or 3072 for a key text in the exact form, 0 for anything else.
int KeyBits(std::string_view text)
{
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        if (i % 3 == 2 ? c != ' ' : !((c >= '0' && c <= '9') || (c >= 'a' && c <= 'f'))) return 0;
    }
    if (text.size() == 809 && text.starts_with("30 82 01 0a 02 82 01 01 00 ")) return 2048;
    return text.size() == 1193 && text.starts_with("30 82 01 8a 02 82 01 81 00 ") ? 3072 : 0;
}

bool Holds(const PublicKeyList& list, const std::string& key)
{
    return std::find(list.begin(), list.end(), key) != list.end();
}

} // namespace

TEST(PinnedKeysTest, FiftyTwoDistinctKeysInTheExactForm)
{
    std::set<std::string> distinct;
    std::vector<std::size_t> sizes;
    for (const auto* list : {&kMasterList, &kSingleKeyList, &kFourKeyList, &kFileTrustListA, &kFileTrustListB, &kShortList}) {
        distinct.insert(list->begin(), list->end());
        sizes.push_back(list->size());
    }
    EXPECT_EQ((std::vector<std::size_t>{48, 1, 4, 48, 37, 7}), sizes);
    std::map<int, int> bySize;
    for (const std::string& key : distinct) ++bySize[KeyBits(key)];
    EXPECT_EQ((std::map<int, int>{{2048, 35}, {3072, 17}}), bySize) << "size 0: not in the exact form";

    // Same length and prefix as a good key: only the character check sees these.
    std::string upper = kMasterList.at(0), doubled = upper;
    upper[upper.find_first_of("abcdef", 27)] = 'F';
    doubled[27] = ' ';
    EXPECT_EQ(0, KeyBits(upper));
    EXPECT_EQ(0, KeyBits(doubled));
}

TEST(PinnedKeysTest, MasterListHas2048BitKeysThen3072WithTwoRepeated)
{
    std::map<std::string, int> seen;
    for (std::size_t i = 0; i < kMasterList.size(); ++i) {
        EXPECT_EQ(i < 31 ? 2048 : 3072, KeyBits(kMasterList[i])) << "entry " << i;
        ++seen[kMasterList[i]];
    }
    EXPECT_EQ(46u, seen.size());
    EXPECT_TRUE(std::all_of(seen.begin(), seen.end(), [](const auto& key) { return key.second <= 2; }));
}

TEST(PinnedKeysTest, OtherListsAreMadeOfMasterEntriesAndTheSmallLists)
{
    for (const std::string& key : kShortList) EXPECT_TRUE(Holds(kMasterList, key)) << key;

    // A and B: the single key and the four keys, master entries, and in A one
    // key found in no other list.
    std::vector<std::string> others;
    for (const auto* list : {&kFileTrustListA, &kFileTrustListB}) {
        EXPECT_TRUE(Holds(*list, kSingleKeyList.at(0)));
        for (const std::string& key : kFourKeyList) EXPECT_TRUE(Holds(*list, key));
        std::size_t fromMaster = 0;
        for (const std::string& key : *list) {
            if (Holds(kMasterList, key)) ++fromMaster;
            else if (!Holds(kSingleKeyList, key) && !Holds(kFourKeyList, key)) others.push_back(key);
        }
        EXPECT_EQ(list == &kFileTrustListA ? 42u : 32u, fromMaster);
    }
    ASSERT_EQ(1u, others.size());
    EXPECT_TRUE(Holds(kFileTrustListA, others[0]));
}
