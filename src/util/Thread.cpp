#include "util/Thread.h"

#include <pthread.h>
#if defined(__APPLE__)
#include <pthread/qos.h>
#endif

namespace lumerix {

void nameCurrentThread(const char* name, bool userInteractive) {
#if defined(__APPLE__)
  pthread_setname_np(name);
  if (userInteractive) pthread_set_qos_class_self_np(QOS_CLASS_USER_INTERACTIVE, 0);
#else
  pthread_setname_np(pthread_self(), name);
  (void)userInteractive;  // no portable equivalent; the default scheduler is fine
#endif
}

}  // namespace lumerix
