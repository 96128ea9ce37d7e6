#pragma once

#include <filesystem>

// The public interface used as a component of the product uses it; returns the
// number of failed checks, each printed to standard error. Without
// askForTheCaller, caller identification outside an RPC call is left out.
int RunConsumerChecks(bool askForTheCaller);

// Counts a check that does not hold, and prints it; the count so far.
void Check(bool holds, const char* what);
int Failures();

// File trust on an emulated PC kept in stateFile, with the test material's
// files and keys (host only); the number of failed checks so far.
int RunTrustChecks(const std::filesystem::path& material, const std::filesystem::path& stateFile);
