// Umbrella header: includes every public header of the library.
#ifndef VELMOR_PKI_OCSP_OCSP_H
#define VELMOR_PKI_OCSP_OCSP_H

#include <pki/ocsp/algorithm_identifier.h>
#include <pki/ocsp/algorithm_identifier_ex.h>
#include <pki/ocsp/atl_exception.h>
#include <pki/ocsp/authority_info_access.h>
#include <pki/ocsp/basic_response.h>
#include <pki/ocsp/big_integer.h>
#include <pki/ocsp/blob.h>
#include <pki/ocsp/cert_id.h>
#include <pki/ocsp/cert_id_with_signature.h>
#include <pki/ocsp/config.h>
#include <pki/ocsp/crl_dist_points.h>
#include <pki/ocsp/crl_reason.h>
#include <pki/ocsp/crypt_provider.h>
#include <pki/ocsp/datetime.h>
#include <pki/ocsp/dll_list.h>
#include <pki/ocsp/extensions.h>
#include <pki/ocsp/general_name.h>
#include <pki/ocsp/ocsp_extensions.h>
#include <pki/ocsp/req_cert.h>
#include <pki/ocsp/request_message.h>
#include <pki/ocsp/responder_id.h>
#include <pki/ocsp/response_message.h>
#include <pki/ocsp/response_validator.h>
#include <pki/ocsp/single_request.h>
#include <pki/ocsp/single_response.h>
#include <pki/ocsp/string_proxy.h>
#include <pki/ocsp/version.h>
#include <pki/ocsp/win32.h>

#endif
