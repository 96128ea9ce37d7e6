#pragma once

#include <string>
#include <vector>

namespace Tessel::Bridge::Security {

// Public-key texts: a key's RSAPublicKey DER, each byte two lower-case hex
// digits, one blank between bytes. Compared as whole strings.
using PublicKeyList = std::vector<std::string>;

// The pinned keys, generated at build time from the deployment's data file
// (cmake/PinnedKeys.cmake). Built at start-up in the order below, the later
// lists copying entries of the earlier ones; never changed afterwards.
namespace PinnedKeys {

// 31 keys of 2048 bits (two of them twice), then 17 of 3072 bits.
extern const PublicKeyList kMasterList;
// One 2048-bit key.
extern const PublicKeyList kSingleKeyList;
// Four 2048-bit keys.
extern const PublicKeyList kFourKeyList;
// Read by the facade's trust check of slot 0.
extern const PublicKeyList kFileTrustListA;
// Read by the facade's trust check of slot 1.
extern const PublicKeyList kFileTrustListB;
// Seven master entries; built, but no operation reads it.
extern const PublicKeyList kShortList;

} // namespace PinnedKeys

} // namespace Tessel::Bridge::Security
