#!/usr/bin/env bash
# Writes the basic-response samples of the response tests from the committed PKI, beside the
# ones make-fixtures.sh writes: responses that `openssl ocsp` writes as a responder, each for
# a request made for it here, and (through make-python-responses.py) responses that Python's
# cryptography package builds. make-fixtures.sh runs this after writing the PKI; run it alone
# to remake only these files, then commit them.
#
#   ocsp/resp-keyid-rsa.der    by key hash (-resp_key_id), RSA, nonce, responder certificate
#   ocsp/resp-mixed-rsa.der    four entries: leaf good, leaf00 revoked (keyCompromise), client
#                              unknown, leaf20 good; certificates: responder and intermediate
#   ocsp/resp-nocerts-rsa.der  one entry (leaf, good), no nonce, no certificates
#   ocsp/resp-100-rsa.der      100 entries asked for by serial number: leaf good, leaf00
#                              revoked, 98 unknown serials; no nonce, no certificates
#   ocsp/resp-py-*.der         see make-python-responses.py
set -euo pipefail
cd "$(dirname "$0")"

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

answer() { # out alg responder-options... -- request-options...
    local out=$1 alg=$2
    shift 2
    local responder=()
    while [[ $1 != -- ]]; do
        responder+=("$1")
        shift
    done
    shift
    openssl ocsp -issuer "pki/$alg/inter.pem" "$@" -reqout "$work/request.der" >/dev/null
    openssl ocsp -index "pki/$alg/index.txt" -CA "pki/$alg/inter.pem" \
        -rsigner "pki/$alg/ocsp.pem" -rkey "pki/$alg/ocsp.key.pem" -ndays 3650 \
        -reqin "$work/request.der" -respout "ocsp/$out" "${responder[@]}" >/dev/null
}

answer resp-keyid-rsa.der rsa -resp_key_id -- -cert pki/rsa/leaf.pem -nonce
answer resp-mixed-rsa.der rsa -rother pki/rsa/inter.pem -- -cert pki/rsa/leaf.pem \
    -cert pki/rsa/leaf00.pem -cert pki/rsa/client.pem -cert pki/rsa/leaf20.pem -no_nonce
answer resp-nocerts-rsa.der rsa -resp_no_certs -- -cert pki/rsa/leaf.pem -no_nonce

serials=(-serial 4097 -serial 0x8F3A5C11D2)
for i in $(seq 1 98); do
    serials+=(-serial $((0x10000 + i)))
done
answer resp-100-rsa.der rsa -resp_no_certs -- "${serials[@]}" -no_nonce

python3 make-python-responses.py

find pki ocsp -type f | LC_ALL=C sort | xargs sha256sum >manifest.txt
