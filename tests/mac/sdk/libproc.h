#pragma once

#include <stdint.h>
#include <sys/resource.h>
#include <sys/types.h>

extern "C" {
int proc_pidpath(int pid, void* buffer, uint32_t size);
int proc_listchildpids(pid_t parent, void* buffer, int size);
int proc_pid_rusage(int pid, int flavour, rusage_info_t* buffer);
}
