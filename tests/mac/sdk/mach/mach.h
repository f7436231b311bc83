#pragma once

#include <pthread.h>

typedef int integer_t;
typedef unsigned natural_t;
typedef natural_t mach_msg_type_number_t;
typedef natural_t mach_port_t;
typedef mach_port_t thread_inspect_t;
typedef natural_t thread_flavor_t;
typedef integer_t* thread_info_t;
typedef int kern_return_t;

#define KERN_SUCCESS 0
#define THREAD_BASIC_INFO 3
#define THREAD_BASIC_INFO_COUNT \
  ((mach_msg_type_number_t)(sizeof(thread_basic_info_data_t) / sizeof(natural_t)))

struct time_value {
  integer_t seconds;
  integer_t microseconds;
};
typedef time_value time_value_t;

struct thread_basic_info {
  time_value_t user_time;
  time_value_t system_time;
  integer_t cpu_usage;
  integer_t policy;
  integer_t run_state;
  integer_t flags;
  integer_t suspend_count;
  integer_t sleep_time;
};
typedef thread_basic_info thread_basic_info_data_t;

extern "C" {
kern_return_t thread_info(thread_inspect_t, thread_flavor_t, thread_info_t,
                          mach_msg_type_number_t*);
mach_port_t pthread_mach_thread_np(pthread_t);
}
