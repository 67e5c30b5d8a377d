#include "sylva/sylva.h"

#include "sylva/impls/identity.h"

namespace sylva {

std::string get_version() { return impls::identity::version; }
int get_build() { return impls::identity::build; }
std::string get_copyright() { return impls::identity::copyright; }

}  // namespace sylva
