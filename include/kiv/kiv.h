// Every family of the library in one include.
#ifndef KIV_KIV_H_
#define KIV_KIV_H_

#include <kiv/buffer.h>
#include <kiv/containers.h>
#include <kiv/converters.h>
#include <kiv/date.h>
#include <kiv/encodings.h>
#include <kiv/exception.h>
#include <kiv/filters.h>
#include <kiv/hashtable.h>
#include <kiv/hierhashtable.h>
#include <kiv/locks.h>
#include <kiv/log.h>
#include <kiv/numbers.h>
#include <kiv/object.h>
#include <kiv/preferences.h>
#include <kiv/properties.h>
#include <kiv/queues.h>
#include <kiv/registry.h>
#include <kiv/resource.h>
#include <kiv/streams.h>
#include <kiv/string.h>
#include <kiv/system.h>
#include <kiv/tasks.h>
#include <kiv/textio.h>
#include <kiv/version.h>

#endif  // KIV_KIV_H_
