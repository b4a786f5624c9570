// The BER/DER runtime under the ASN.1 types: include this one header.
//
// Per ASN.1 type the type layer writes an ASN1T_<Type> structure and three functions:
//     int asn1E(ASN1BEREncodeBuffer& b, const ASN1T_X& v, ASN1TAG tag = <its tag>);
//     int asn1D(Velmor::Asn1Rt::BerReader& r, ASN1T_X& v, ASN1TAG tag = <its tag>);
//     int asn1Copy_X(ASN1CTXT* ctxt, const ASN1T_X& from, ASN1T_X& to);
// and one line for the control class:
//     using ASN1C_X = ASN1CTypeT<ASN1T_X>;
// A SEQUENCE OF type should be a distinct struct derived from OSRTDList, so that its
// asn1E/asn1D overloads do not collide with those of other lists.
// docs/asn1/runtime.md describes the representations and the rules.
#ifndef VELMOR_SRC_ASN1_ASN1_RUNTIME_H
#define VELMOR_SRC_ASN1_ASN1_RUNTIME_H

#include "asn1/asn1_base.h"
#include "asn1/asn1_buffer.h"
#include "asn1/asn1_ctype.h"
#include "asn1/asn1_reader.h"

#endif
