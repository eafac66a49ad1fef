/*
 * kt.h - the whole public interface of the KT common module
 * (libvlnvktosx). Include this, or only the subsystem headers you use.
 */
#ifndef KT_H
#define KT_H

#include "kt_frame.h"
#include "kt_traces.h"
#include "kt_zones.h"
#include "kt_checks.h"
#include "kt_crypto.h"
#include "kt_binfiles.h"
#include "kt_dictionary.h"

#endif /* KT_H */
