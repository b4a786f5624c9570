#!/usr/bin/env bash
# Makes the fixture PKI and the OCSP sample messages the tests read, with the openssl
# command only. The outputs are committed so that every test run sees the same bytes; run
# this again only to change the fixtures, then commit what it wrote.
#
#   pki/<alg>/        alg = rsa (RSA-2048) or ec (P-256); one hierarchy per key type
#     root            self-signed root CA, notAfter past 2049 (GeneralizedTime validity)
#     inter           intermediate CA, issued by root
#     leaf            end entity, issued by inter, ordinary serial
#     leaf00          end entity whose serial needs a leading 0x00 octet; revoked in index.txt
#     leaf20          end entity with a 20-octet serial
#     ocsp            OCSP responder (extendedKeyUsage id-kp-OCSPSigning, ocsp-nocheck)
#     client          requestor certificate used to sign requests
#     ocsp3072 (rsa), ocsp384 (ec)  further OCSP responders with RSA-3072 and P-384 keys
#     <name>.pem / <name>.der         certificate
#     <name>.key.pem / <name>.key.der private key (PKCS#8, unencrypted)
#     chain.pem       inter + root;  index.txt  the responder's database for inter
#   ocsp/             requests written by `openssl ocsp -reqout` and responses written by
#                     `openssl ocsp` acting as the responder for those requests;
#                     req-python-nonce.der written by make-python-request.py; further
#                     responses written by make-responses.sh (openssl and Python)
set -euo pipefail
cd "$(dirname "$0")"

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

ext="$work/ext.cnf"
cat >"$ext" <<'CNF'
[ca]
basicConstraints = critical, CA:TRUE
keyUsage = critical, keyCertSign, cRLSign
subjectKeyIdentifier = hash
authorityKeyIdentifier = keyid:always

[inter]
basicConstraints = critical, CA:TRUE, pathlen:0
keyUsage = critical, keyCertSign, cRLSign
subjectKeyIdentifier = hash
authorityKeyIdentifier = keyid:always
crlDistributionPoints = URI:http://crl.velmor.test/root.crl
authorityInfoAccess = OCSP;URI:http://ocsp.velmor.test/root, caIssuers;URI:http://pki.velmor.test/root.cer

[leaf]
basicConstraints = critical, CA:FALSE
keyUsage = critical, digitalSignature, keyEncipherment
extendedKeyUsage = serverAuth
subjectKeyIdentifier = hash
authorityKeyIdentifier = keyid:always
subjectAltName = DNS:www.velmor.test, DNS:velmor.test, IP:192.0.2.10, email:pki@velmor.test
crlDistributionPoints = leaf_crldp
authorityInfoAccess = OCSP;URI:http://ocsp.velmor.test/inter, caIssuers;URI:http://pki.velmor.test/inter.cer

[leaf_crldp]
fullname = URI:http://crl.velmor.test/inter.crl, URI:ldap://ldap.velmor.test/cn=Velmor%20Inter?certificateRevocationList
reasons = keyCompromise, CACompromise, superseded
CRLissuer = dirName:crl_issuer_dn

[crl_issuer_dn]
C = DE
O = Velmor Test PKI
CN = Velmor CRL Issuer

[ocsp]
basicConstraints = critical, CA:FALSE
keyUsage = critical, digitalSignature
extendedKeyUsage = critical, OCSPSigning
noCheck = ignored
subjectKeyIdentifier = hash
authorityKeyIdentifier = keyid:always

[client]
basicConstraints = critical, CA:FALSE
keyUsage = critical, digitalSignature
extendedKeyUsage = clientAuth
subjectKeyIdentifier = hash
authorityKeyIdentifier = keyid:always
CNF

genkey() { # alg out; alg = rsa, rsa3072, ec (P-256) or p384
    case $1 in
    rsa) openssl genpkey -algorithm RSA -pkeyopt rsa_keygen_bits:2048 -out "$2.key.pem" 2>/dev/null ;;
    rsa3072) openssl genpkey -algorithm RSA -pkeyopt rsa_keygen_bits:3072 -out "$2.key.pem" 2>/dev/null ;;
    ec | p384)
        openssl genpkey -algorithm EC -pkeyopt ec_paramgen_curve:"$([[ $1 == ec ]] && echo P-256 || echo P-384)" \
            -pkeyopt ec_param_enc:named_curve -out "$2.key.pem" 2>/dev/null
        ;;
    esac
    openssl pkcs8 -topk8 -nocrypt -in "$2.key.pem" -outform DER -out "$2.key.der"
}

digest_for() { [[ $1 == rsa ]] && echo sha256 || echo sha256; }

issue() { # alg name subject issuer section serial days
    local alg=$1 name=$2 subj=$3 issuer=$4 section=$5 serial=$6 days=$7
    genkey "$alg" "$name"
    openssl req -new -key "$name.key.pem" -subj "$subj" -out "$work/$name.csr"
    if [[ $issuer == self ]]; then
        openssl x509 -req -in "$work/$name.csr" -signkey "$name.key.pem" -days "$days" \
            -set_serial "$serial" -extfile "$ext" -extensions "$section" \
            -"$(digest_for "$alg")" -out "$name.pem" 2>/dev/null
    else
        openssl x509 -req -in "$work/$name.csr" -CA "$issuer.pem" -CAkey "$issuer.key.pem" \
            -days "$days" -set_serial "$serial" -extfile "$ext" -extensions "$section" \
            -"$(digest_for "$alg")" -out "$name.pem" 2>/dev/null
    fi
    openssl x509 -in "$name.pem" -outform DER -out "$name.der"
}

index_line() { # status cert [revocation]
    local status=$1 cert=$2 revoked=${3:-}
    local end serial subject
    end=$(date -u -d "$(openssl x509 -in "$cert" -noout -enddate | cut -d= -f2)" +%y%m%d%H%M%SZ)
    serial=$(openssl x509 -in "$cert" -noout -serial | cut -d= -f2)
    subject=$(openssl x509 -in "$cert" -noout -subject -nameopt compat | sed 's/^subject=//')
    printf '%s\t%s\t%s\t%s\tunknown\t%s\n' "$status" "$end" "$revoked" "$serial" "$subject"
}

make_pki() { # alg label
    local alg=$1 label=$2
    rm -rf "pki/$alg"
    mkdir -p "pki/$alg"
    (
        cd "pki/$alg"
        issue "$alg" root "/C=DE/O=Velmor Test PKI/CN=Velmor $label Root CA" self ca 1 10000
        issue "$alg" inter "/C=DE/O=Velmor Test PKI/CN=Velmor $label Intermediate CA" root inter 2 7300
        issue "$alg" leaf "/C=DE/O=Velmor Test PKI/OU=Servers/CN=www.velmor.test" inter leaf 4097 3650
        issue "$alg" leaf00 "/C=DE/O=Velmor Test PKI/CN=Leading Zero Serial" inter leaf \
            0x8F3A5C11D2 3650
        issue "$alg" leaf20 "/C=DE/O=Velmor Test PKI/CN=Twenty Octet Serial" inter leaf \
            0x7E1D2C3B4A59687786950A1B2C3D4E5F60718293 3650
        issue "$alg" ocsp "/C=DE/O=Velmor Test PKI/CN=Velmor $label OCSP Responder" inter ocsp 8193 3650
        issue "$alg" client "/C=DE/O=Velmor Test PKI/CN=Velmor $label OCSP Client" inter client 12289 3650
        cat inter.pem root.pem >chain.pem
        {
            index_line V leaf.pem
            index_line R leaf00.pem 260101000000Z,keyCompromise
            index_line V leaf20.pem
            index_line V ocsp.pem
        } >index.txt
    )
}

# Responders with the larger keys, issued by the intermediate CAs above: RSA-3072 beside
# the RSA hierarchy, P-384 beside the ECDSA one. `--responders-only` makes just these, and
# leaves every other fixture as it is.
make_responders() {
    (cd pki/rsa && issue rsa3072 ocsp3072 "/C=DE/O=Velmor Test PKI/CN=Velmor RSA-3072 OCSP Responder" \
        inter ocsp 8194 3650)
    (cd pki/ec && issue p384 ocsp384 "/C=DE/O=Velmor Test PKI/CN=Velmor P-384 OCSP Responder" \
        inter ocsp 8194 3650)
}

if [[ ${1:-} == --responders-only ]]; then
    make_responders
    find pki ocsp -type f | LC_ALL=C sort | xargs sha256sum >manifest.txt
    exit 0
fi

make_pki rsa RSA
make_pki ec ECDSA
make_responders

# ---- OCSP samples --------------------------------------------------------------------------
rm -rf ocsp
mkdir -p ocsp

request() { # out alg options...
    local out=$1 alg=$2
    shift 2
    openssl ocsp -issuer "pki/$alg/inter.pem" "$@" -reqout "ocsp/$out" >/dev/null
}

respond() { # out alg request extra-options...
    local out=$1 alg=$2 req=$3
    shift 3
    openssl ocsp -index "pki/$alg/index.txt" -CA "pki/$alg/inter.pem" \
        -rsigner "pki/$alg/ocsp.pem" -rkey "pki/$alg/ocsp.key.pem" \
        -reqin "ocsp/$req" -respout "ocsp/$out" -ndays 3650 "$@" >/dev/null
}

request req-plain.der rsa -cert pki/rsa/leaf.pem -no_nonce
request req-nonce.der rsa -cert pki/rsa/leaf.pem -nonce
request req-sha256.der rsa -sha256 -cert pki/rsa/leaf.pem -no_nonce
request req-two.der rsa -cert pki/rsa/leaf.pem -cert pki/rsa/leaf20.pem -nonce
request req-revoked.der rsa -cert pki/rsa/leaf00.pem -no_nonce
request req-unknown.der rsa -cert pki/rsa/client.pem -no_nonce
request req-signed-rsa.der rsa -cert pki/rsa/leaf.pem -nonce \
    -signer pki/rsa/client.pem -signkey pki/rsa/client.key.pem -sign_other pki/rsa/inter.pem
request req-signed-ec.der ec -cert pki/ec/leaf.pem -nonce \
    -signer pki/ec/client.pem -signkey pki/ec/client.key.pem
request req-ec.der ec -sha256 -cert pki/ec/leaf.pem -cert pki/ec/leaf00.pem -nonce
# The same kind of request as Python's `cryptography` package writes it (needs python3 with
# that package).
python3 make-python-request.py

respond resp-good-rsa.der rsa req-nonce.der
respond resp-plain-rsa.der rsa req-plain.der
respond resp-two-rsa.der rsa req-two.der
respond resp-revoked-rsa.der rsa req-revoked.der
respond resp-unknown-rsa.der rsa req-unknown.der
respond resp-sha256-rsa.der rsa req-sha256.der -rmd sha384
respond resp-ec.der ec req-ec.der
respond resp-keyid-ec.der ec req-signed-ec.der -resp_key_id -resp_no_certs
# The further responses of the basic response tests (needs python3 with cryptography too).
bash make-responses.sh

# A checksum list so that a test can tell a damaged fixture from a broken decoder.
find pki ocsp -type f | LC_ALL=C sort | xargs sha256sum >manifest.txt
echo "fixtures written to $(pwd)"
