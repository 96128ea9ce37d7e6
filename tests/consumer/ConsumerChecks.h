#pragma once

// The public interface used as a component of the product uses it; returns the
// number of failed checks, each printed to standard error. Without
// askForTheCaller, caller identification outside an RPC call is left out.
int RunConsumerChecks(bool askForTheCaller);
