// libproc2 where its headers were found, and libuv, which is loaded where it is installed.

#include "bench/host_peers.h"

#include <dlfcn.h>
#include <unistd.h>

#include <cstdint>

#ifdef HAVE_LIBPROC2
#include <libproc2/meminfo.h>
#include <libproc2/misc.h>
#include <libproc2/pids.h>
#include <libproc2/stat.h>
#include <libproc2/vmstat.h>
#endif

namespace {

#ifdef HAVE_LIBPROC2
// What it is asked with stays until the end, and so do the files that it keeps open.
HostPeer libproc2() {
  static stat_info *stat = nullptr;
  static meminfo_info *memory = nullptr;
  static vmstat_info *paging = nullptr;
  static pids_info *processes = nullptr, *commands = nullptr;
  static pids_item columns[] = {PIDS_ID_PID,     PIDS_ID_PPID,  PIDS_ID_EUID,     PIDS_MEM_VIRT,
                                PIDS_MEM_RES,    PIDS_STATE,    PIDS_UTILIZATION, PIDS_TIME_ALL,
                                PIDS_TIME_START, PIDS_ID_EUSER, PIDS_CMDLINE},
                   command[] = {PIDS_CMDLINE};
  if (procps_stat_new(&stat) < 0 || procps_meminfo_new(&memory) < 0 ||
      procps_vmstat_new(&paging) < 0 ||
      procps_pids_new(&processes, columns, static_cast<int>(std::size(columns))) < 0 ||
      procps_pids_new(&commands, command, 1) < 0)
    return {};
  return {"libproc2",
          {{"syscpu",
            [] {
              static stat_item items[] = {STAT_TIC_USER, STAT_TIC_NICE, STAT_TIC_SYSTEM,
                                          STAT_TIC_IDLE, STAT_TIC_IOWAIT};
              procps_stat_reap(stat, STAT_REAP_CPUS_ONLY, items, std::size(items));
            }},
           {"sysncpu", [] { procps_cpu_count(); }},
           {"sysmem",
            [] {
              static meminfo_item items[] = {MEMINFO_MEM_TOTAL, MEMINFO_MEM_USED,
                                             MEMINFO_SWAP_TOTAL, MEMINFO_SWAP_USED};
              procps_meminfo_select(memory, items, std::size(items));
            }},
           {"syspaging",
            [] {
              static vmstat_item items[] = {VMSTAT_PGPGIN, VMSTAT_PGPGOUT};
              procps_vmstat_select(paging, items, std::size(items));
            }},
           {"sysloadavg",
            [] {
              double one, five, fifteen;
              procps_loadavg(&one, &five, &fifteen);
            }},
           {"sysboottime",
            [] {
              double up, idle;
              procps_uptime(&up, &idle);
            }},
           {"pidcmdline",
            [] {
              auto pid = static_cast<unsigned>(getpid());
              procps_pids_select(commands, &pid, 1, PIDS_SELECT_PID);
            }},
           {"sysproc", [] { procps_pids_reap(processes, PIDS_FETCH_TASKS_ONLY); }}}};
}
#endif

HostPeer libuv() {
  void *library = dlopen("libuv.so.1", RTLD_NOW);
  if (library == nullptr) return {};
  const auto symbol = [library]<typename Type>(Type *&function, const char *name) {
    function = reinterpret_cast<Type *>(dlsym(library, name));
  };
  static int (*cpu_info)(void **, int *), (*uptime)(double *);
  static void (*free_cpu_info)(void *, int), (*loadavg)(double *);
  static uint64_t (*free_memory)(), (*total_memory)();
  static unsigned (*parallelism)();
  symbol(cpu_info, "uv_cpu_info");
  symbol(free_cpu_info, "uv_free_cpu_info");
  symbol(uptime, "uv_uptime");
  symbol(loadavg, "uv_loadavg");
  symbol(free_memory, "uv_get_free_memory");
  symbol(total_memory, "uv_get_total_memory");
  symbol(parallelism, "uv_available_parallelism");
  return {"libuv",
          {{"syscpu",
            [] {
              void *infos = nullptr;
              int count = 0;
              cpu_info(&infos, &count);
              free_cpu_info(infos, count);
            }},
           {"sysncpu", [] { parallelism(); }},
           {"sysmem",
            [] {
              free_memory();
              total_memory();
            }},
           {"sysloadavg",
            [] {
              double averages[3];
              loadavg(averages);
            }},
           {"sysboottime", [] {
              double up;
              uptime(&up);
            }}}};
}

}  // namespace

std::vector<HostPeer> installed_host_peers() {
  std::vector<HostPeer> peers;
#ifdef HAVE_LIBPROC2
  peers.push_back(libproc2());
#endif
  peers.push_back(libuv());
  std::erase_if(peers, [](const HostPeer &peer) { return peer.calls.empty(); });
  return peers;
}
