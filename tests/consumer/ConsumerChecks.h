#pragma once

#include <filesystem>

// The public interface used as a component of the product uses it; returns the
// number of failed checks, each printed to standard error. Without
// askForTheCaller, caller identification outside an RPC call is left out.
int RunConsumerChecks(bool askForTheCaller);

// File trust on an emulated PC kept in stateFile, with the test material's
// files and keys (host only).
int RunTrustChecks(const std::filesystem::path& material, const std::filesystem::path& stateFile);
