#pragma once

#include "platform/FolderSecurity.h"

#include <cstdint>
#include <string>
#include <vector>

namespace KestrelTest {

// An ACL (the bytes of its header and entries) holding exactly these entries
// in this order: allowed (type 0) or denied (type 1), each with its
// mask and string SID. Throws std::runtime_error when Windows refuses one.
std::vector<std::uint8_t> MakeAcl(const std::vector<Tessel::Bridge::Platform::AccessEntry>& aces);

// Makes the folder (and any folder above it that is missing) and gives it
// exactly these entries as its DACL, protected from the entries its parent
// would pass on. Wine 8 answers success but keeps no DACL for files: reading
// one back gives entries made from the Unix permissions.
void MakeFolderWithAces(const std::wstring& folder, const std::vector<Tessel::Bridge::Platform::AccessEntry>& aces);

} // namespace KestrelTest
