#pragma once
// One row per way of calling each REST operation of the registry: arguments that decode, and the
// request they must produce. The registry test checks the requests; the fault matrix runs them
// against the sandbox.

#include <span>

namespace velora::testing {

struct OperationRow {
  const char* name;
  const char* arguments;
  const char* method;
  /// Below the endpoint, or a whole URL.
  const char* target;
  /// Expected JSON body; "{uuid}" stands for the installation identifier.
  const char* body = nullptr;
};

/// The body of a row whose request is multipart; its bytes are checked with the tickets.
inline constexpr const char* kMultipartBody = "multipart";

/// Every row; every registered operation has at least one.
std::span<const OperationRow> operationRows();

}  // namespace velora::testing
