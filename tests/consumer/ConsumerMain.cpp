#include "ConsumerChecks.h"

#include <cstdio>

int main()
{
    const int failures = RunConsumerChecks(true);
    if (failures == 0) std::printf("consumer: all checks held\n");
    return failures == 0 ? 0 : 1;
}
