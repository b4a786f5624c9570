#!/usr/bin/env python3
"""Writes ocsp/req-python-nonce.der: an OCSP request as Python's `cryptography` package
builds it (OCSPRequestBuilder), one SHA-1 CertID of pki/rsa/leaf under pki/rsa/inter and a
non-critical nonce extension. The nonce is fixed so that running this again on the same
PKI writes the same bytes. make-fixtures.sh runs it after writing the PKI."""
import pathlib

from cryptography import x509
from cryptography.hazmat.primitives import hashes, serialization
from cryptography.x509 import ocsp

here = pathlib.Path(__file__).resolve().parent
leaf = x509.load_der_x509_certificate((here / "pki/rsa/leaf.der").read_bytes())
issuer = x509.load_der_x509_certificate((here / "pki/rsa/inter.der").read_bytes())
nonce = bytes(range(0x10, 0x20))

request = (
    ocsp.OCSPRequestBuilder()
    .add_certificate(leaf, issuer, hashes.SHA1())
    .add_extension(x509.OCSPNonce(nonce), critical=False)
    .build()
)
(here / "ocsp/req-python-nonce.der").write_bytes(request.public_bytes(serialization.Encoding.DER))
