#include "tarn/util/proc.h"

#include <sys/resource.h>
#include <sys/sysinfo.h>

namespace tarn::util::proc {

long long phys_total_ram() {
  struct sysinfo si;
  if (sysinfo(&si) != 0) return -1;
  return (static_cast<long long>(si.totalram) + static_cast<long long>(si.totalhigh)) * si.mem_unit;
}

long long phys_available_ram() {
  struct sysinfo si;
  if (sysinfo(&si) != 0) return -1;
  return (static_cast<long long>(si.freeram) + static_cast<long long>(si.freehigh)) * si.mem_unit;
}

long long process_current_mem() {
  struct rusage ru;
  if (getrusage(RUSAGE_SELF, &ru) != 0) return -1;
  return static_cast<long long>(ru.ru_ixrss) + ru.ru_idrss + ru.ru_isrss;
}

long long process_peak_mem() { return -1; }

long long process_free_ram() {
  const long long total = phys_total_ram();
  const long long used = process_current_mem();
  if (total < 0 || used < 0) return -1;
  return total - used;
}

}  // namespace tarn::util::proc
