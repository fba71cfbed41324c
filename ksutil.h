/* libksutil: building blocks for seismic data processing.  Includes all of the library. */
#ifndef KSUTIL_H
#define KSUTIL_H

#include "core/Array.h"
#include "core/Table.h"
#include "core/named_objects.h"
#include "core/params.h"
#include "core/register.h"
#include "events/command.h"
#include "events/evclient.h"
#include "events/evserver.h"
#include "events/query.h"
#include "events/records.h"
#include "events/tabs.h"
#include "pipeline/pmtcomp.h"
#include "pipeline/pmtfifo.h"
#include "pipeline/pmtmanagedfifo.h"
#include "platform/clock/clock.h"
#include "platform/db/db.h"
#include "platform/elog/elog.h"
#include "platform/geo/geo.h"
#include "platform/pf/pf.h"
#include "platform/stock/arr.h"
#include "platform/stock/bytes.h"
#include "platform/stock/hook.h"
#include "platform/stock/tbl.h"
#include "platform/stock/text.h"
#include "platform/stock/verbose.h"
#include "platform/traveltime/traveltime.h"

#endif
