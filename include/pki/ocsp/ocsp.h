// Umbrella header: includes every public header of the library.
#ifndef VELMOR_PKI_OCSP_OCSP_H
#define VELMOR_PKI_OCSP_OCSP_H

#include <pki/ocsp/atl_exception.h>
#include <pki/ocsp/config.h>
#include <pki/ocsp/win32.h>

#endif
