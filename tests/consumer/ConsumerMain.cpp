#include "ConsumerChecks.h"

#include <cstdio>
#include <cstdlib>

int main()
{
    RunConsumerChecks(true);
    const char* material = std::getenv("KESTREL_TRUST_MATERIAL");
    const char* pc = std::getenv("KESTREL_EMULATED_PC");
    if (material == nullptr || pc == nullptr) {
        std::fprintf(stderr, "failed: KESTREL_TRUST_MATERIAL and KESTREL_EMULATED_PC must be set\n");
        return 1;
    }
    const int failures = RunTrustChecks(material, pc);
    if (failures == 0) std::printf("consumer: all checks held\n");
    return failures == 0 ? 0 : 1;
}
