// libproc, as far as the Mac's backend uses it.
#pragma once

#include <stdint.h>
#include <sys/types.h>

#define PROC_PIDLISTFDS 1
#define PROC_PIDTBSDINFO 3
#define PROC_PIDPATHINFO_MAXSIZE 4096

struct proc_fdinfo {
  int32_t proc_fd;
  uint32_t proc_fdtype;
};

struct proc_bsdinfo {
  uint32_t pbi_flags;
  uint32_t pbi_status;
  uint32_t pbi_xstatus;
  uint32_t pbi_pid;
  uint32_t pbi_ppid;
  uid_t pbi_uid;
  gid_t pbi_gid;
  uid_t pbi_ruid;
  gid_t pbi_rgid;
  uid_t pbi_svuid;
  gid_t pbi_svgid;
  uint32_t rfu_1;
  char pbi_comm[16];
  char pbi_name[32];
  uint32_t pbi_nfiles;
  uint32_t pbi_pgid;
  uint32_t pbi_pjobc;
  uint32_t e_tdev;
  uint32_t e_tpgid;
  int32_t pbi_nice;
  uint64_t pbi_start_tvsec;
  uint64_t pbi_start_tvusec;
};

#ifdef __cplusplus
extern "C" {
#endif
int proc_listallpids(void*, int);
int proc_pidinfo(int, int, uint64_t, void*, int);
int proc_pidpath(int, void*, uint32_t);
#ifdef __cplusplus
}
#endif
