#pragma once

// Memory figures of the machine and of this process, in bytes; -1 when the
// figure cannot be had. Reported by diagnostics only.
namespace tarn::util::proc {

long long phys_total_ram();
long long phys_available_ram();
long long process_current_mem();
long long process_peak_mem();
long long process_free_ram();

}  // namespace tarn::util::proc
