#pragma once

#include <utility>

namespace corvane {

/// The instance of a service that is current in the process; null before a scope made one current.
template <typename Service>
inline Service* currentService = nullptr;

/// Makes a service current for as long as this object lives, then the one before it again. Does not own it.
template <typename Service>
class ServiceScope {
 public:
  explicit ServiceScope(Service& service) : _before(std::exchange(currentService<Service>, &service)) {}
  ~ServiceScope() { currentService<Service> = _before; }
  ServiceScope(const ServiceScope&) = delete;
  ServiceScope& operator=(const ServiceScope&) = delete;

 private:
  Service* _before;
};

}  // namespace corvane
