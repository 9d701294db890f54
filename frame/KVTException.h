// The module's one exception type and the guard that carries the failure convention.
//
// Every method body runs inside Guarded(name, body). A CKVTException passing through
// gets the method's name appended to its trail; anything else is turned into a new
// CKVTException that starts its trail with the name. Exceptions travel as owned
// pointers: whoever finally catches one deletes it.
#pragma once

#include <string>
#include <utility>
#include <vector>

class CKVTException {
 public:
  explicit CKVTException(std::string name) { Trail.push_back(std::move(name)); }
  virtual ~CKVTException() = default;

  void Add(std::string name) { Trail.push_back(std::move(name)); }

  // Method names, innermost first.
  const std::vector<std::string>& GetTrail() const { return Trail; }

  // The trail as one line: "A() <- B() <- C()".
  std::string Describe() const;

 private:
  std::vector<std::string> Trail;
};

// Throws a fresh CKVTException whose trail starts with `name`.
[[noreturn]] void ThrowKVT(const char* name);

template <class Body>
decltype(auto) Guarded(const char* name, Body&& body) {
  try {
    return body();
  } catch (CKVTException* e) {
    e->Add(name);
    throw;
  } catch (...) {
    ThrowKVT(name);
  }
}
