// The module's one exception type and the guard that carries the failure convention.
//
// Every method body runs inside Guarded(name, body). A CKVTException passing through
// gets the method's name appended to its trail; anything else is turned into a new
// CKVTException that starts its trail with the name (and, for a std::exception, keeps
// its what() as the reason). Exceptions travel as owned pointers: whoever finally
// catches one deletes it.
#pragma once

#include <exception>
#include <string>
#include <utility>
#include <vector>

class CKVTException {
 public:
  explicit CKVTException(std::string name) { Trail.push_back(std::move(name)); }
  CKVTException(std::string name, std::string reason) : Reason(std::move(reason)) { Trail.push_back(std::move(name)); }
  virtual ~CKVTException() = default;

  void Add(std::string name) { Trail.push_back(std::move(name)); }

  // Method names, innermost first.
  const std::vector<std::string>& GetTrail() const { return Trail; }

  // What went wrong where the trail starts, when known (the what() of a standard
  // exception); empty otherwise.
  const std::string& GetReason() const { return Reason; }

  // The trail as one line: "A() <- B() <- C()".
  std::string Describe() const;
  // The trail and, when there is one, the reason: "A() <- B(): reason".
  std::string DescribeWithReason() const;

 private:
  std::vector<std::string> Trail;
  std::string Reason;
};

// Throws a fresh CKVTException whose trail starts with `name`.
[[noreturn]] void ThrowKVT(const char* name);
// The same with the reason text.
[[noreturn]] void ThrowKVT(const char* name, const char* reason);

template <class Body>
decltype(auto) Guarded(const char* name, Body&& body) {
  try {
    return body();
  } catch (CKVTException* e) {
    e->Add(name);
    throw;
  } catch (const std::exception& e) {
    ThrowKVT(name, e.what());
  } catch (...) {
    ThrowKVT(name);
  }
}
