#include "PathRulesCases.h"

#include <gtest/gtest.h>

using namespace KestrelTest::PathRules;

TEST(WindowsPathRules, EveryRowOfTheTableGivesItsReturnValueTextAndLastError)
{
    const std::vector<Case> cases = Cases();
    for (std::size_t i = 0; i < cases.size(); ++i) {
        EXPECT_EQ(Ours(cases[i]), Expected(cases[i])) << "row " << i << ": " << cases[i].input.substr(0, 60);
    }
}
