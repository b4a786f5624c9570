#!/usr/bin/env python3
"""Writes ocsp/resp-py-*.der: OCSP responses as Python's `cryptography` package builds them
(OCSPResponseBuilder), one entry each, signed by the fixture responders with SHA-256:

  resp-py-name-rsa.der  RSA responder by Name; SHA-1 CertID of rsa/leaf, good; a nonce;
                        certificates [ocsp]
  resp-py-key-rsa.der   RSA responder by key hash; SHA-256 CertID of rsa/leaf00, revoked
                        (keyCompromise); certificates [ocsp, inter]
  resp-py-name-ec.der   ECDSA responder by Name; SHA-256 CertID of ec/leaf20, unknown; no
                        certificates
  resp-py-key-ec.der    ECDSA responder by key hash; SHA-1 CertID of ec/leaf00, revoked
                        without a reason; certificates [ocsp]

The entries' times and the nonce are fixed; producedAt is the time of writing, and ECDSA
signatures differ from run to run. make-responses.sh runs this."""
import datetime
import pathlib

from cryptography import x509
from cryptography.hazmat.primitives import hashes, serialization
from cryptography.x509 import ocsp

here = pathlib.Path(__file__).resolve().parent
this_update = datetime.datetime(2026, 1, 2, 3, 4, 5)
next_update = datetime.datetime(2036, 1, 2, 3, 4, 5)
revoked_at = datetime.datetime(2025, 12, 1, 0, 0, 0)


def cert(alg, name):
    return x509.load_der_x509_certificate((here / f"pki/{alg}/{name}.der").read_bytes())


def key(alg):
    data = (here / f"pki/{alg}/ocsp.key.pem").read_bytes()
    return serialization.load_pem_private_key(data, password=None)


def write(out, alg, leaf, algorithm, status, encoding, certs, reason=None, nonce=None):
    responder = cert(alg, "ocsp")
    builder = ocsp.OCSPResponseBuilder().add_response(
        cert=cert(alg, leaf),
        issuer=cert(alg, "inter"),
        algorithm=algorithm,
        cert_status=status,
        this_update=this_update,
        next_update=next_update,
        revocation_time=revoked_at if status == ocsp.OCSPCertStatus.REVOKED else None,
        revocation_reason=reason,
    )
    builder = builder.responder_id(encoding, responder)
    if certs:
        builder = builder.certificates([cert(alg, name) for name in certs])
    if nonce is not None:
        builder = builder.add_extension(x509.OCSPNonce(nonce), critical=False)
    response = builder.sign(key(alg), hashes.SHA256())
    (here / "ocsp" / out).write_bytes(response.public_bytes(serialization.Encoding.DER))


good, revoked, unknown = (ocsp.OCSPCertStatus.GOOD, ocsp.OCSPCertStatus.REVOKED,
                          ocsp.OCSPCertStatus.UNKNOWN)
by_name, by_key = ocsp.OCSPResponderEncoding.NAME, ocsp.OCSPResponderEncoding.HASH

write("resp-py-name-rsa.der", "rsa", "leaf", hashes.SHA1(), good, by_name, ["ocsp"],
      nonce=bytes(range(0x40, 0x50)))
write("resp-py-key-rsa.der", "rsa", "leaf00", hashes.SHA256(), revoked, by_key,
      ["ocsp", "inter"], reason=x509.ReasonFlags.key_compromise)
write("resp-py-name-ec.der", "ec", "leaf20", hashes.SHA256(), unknown, by_name, [])
write("resp-py-key-ec.der", "ec", "leaf00", hashes.SHA1(), revoked, by_key, ["ocsp"])
