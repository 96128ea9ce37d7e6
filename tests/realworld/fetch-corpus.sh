#!/usr/bin/env bash
# Puts the real-world corpus and its trust roots in OUTDIR:
#   fetch-corpus.sh CACHE OUTDIR
# Packages are fetched once into CACHE (an ignored folder) and reused; each
# file is checked against its pinned SHA-256. Without the network, or when a
# pin no longer matches, this fails: the tests that need the corpus must not
# pass by skipping it.
set -euo pipefail

die() { echo "fetch-corpus: $*" >&2; exit 1; }
[[ $# -eq 2 ]] || die "usage: $0 CACHE OUTDIR"
here=$(cd "$(dirname "$0")" && pwd)
mkdir -p "$1" "$2"
cache=$(cd "$1" && pwd)
out=$(cd "$2" && pwd)
for t in npm apt-get dpkg-deb openssl sha256sum tar; do
  command -v "$t" >/dev/null || die "missing tool: $t (./dev install all installs it)"
done

# unpack SOURCE PACKAGE: the package's folder in the cache, fetched when absent.
unpack() {
  local source=$1 package=$2 dir="$cache/$(printf '%s' "$2" | tr '/@=~' '____')"
  if [[ ! -d $dir ]]; then
    local work
    work=$(mktemp -d "$cache/fetch.XXXXXX")
    if [[ $source == npm ]]; then
      (cd "$work" && npm pack --silent "$package" >/dev/null 2>"$work/log" && mkdir x && tar xzf ./*.tgz -C x) ||
        { cat "$work/log" >&2; rm -rf "$work"; die "could not fetch $package from the npm registry (no network?)"; }
    else
      # Package lists may be missing or old on a fresh machine: refresh once.
      (cd "$work" && { apt-get download "$package" >"$work/log" 2>&1 ||
        { apt-get update -q >>"$work/log" 2>&1 && apt-get download "$package" >>"$work/log" 2>&1; }; } &&
        mkdir x && dpkg-deb -x ./*.deb x) ||
        { cat "$work/log" >&2; rm -rf "$work"; die "could not fetch the Debian package $package (no network?)"; }
    fi
    mv "$work/x" "$dir"
    rm -rf "$work"
  fi
  printf '%s\n' "$dir"
}

while read -r source package path sha256 name; do
  [[ -z $source || $source == \#* ]] && continue
  file="$(unpack "$source" "$package")/$path"
  [[ -f $file ]] || die "$package has no $path"
  [[ $(sha256sum <"$file" | cut -d' ' -f1) == "$sha256" ]] || die "$package: $path is not the pinned file"
  cp "$file" "$out/$name"
done <"$here/corpus.txt"

# Roots: Debian's CA bundle, and the Microsoft roots Wine's crypt32.dll
# carries as DER certificates (SEQUENCE with a two-byte length, whose first
# element is again such a SEQUENCE; openssl keeps those that parse).
bundle=/etc/ssl/certs/ca-certificates.crt
[[ -s $bundle ]] || die "no $bundle: install ca-certificates"
crypt32=$(dpkg -L libwine 2>/dev/null | grep '/x86_64-windows/crypt32\.dll$' | head -n1) ||
  die "no Microsoft roots: libwine (x86_64-windows/crypt32.dll) is not installed; ./dev install all installs it"
: >"$out/microsoft-roots.pem"
while read -r offset; do
  length=$(od -An -tu1 -j $((offset + 2)) -N2 "$crypt32" | awk '{ print $1 * 256 + $2 + 4 }')
  [[ $(od -An -tx1 -j $((offset + 4)) -N2 "$crypt32" | tr -d ' ') == 3082 ]] || continue
  tail -c +$((offset + 1)) "$crypt32" | head -c "$length" |
    openssl x509 -inform DER -outform PEM >>"$out/microsoft-roots.pem" 2>/dev/null || true
done < <(LC_ALL=C grep -obUaP '\x30\x82' "$crypt32" | cut -d: -f1)
count=$(grep -c 'BEGIN CERTIFICATE' "$out/microsoft-roots.pem" || true)
[[ $count -ge 5 ]] || die "found $count Microsoft roots in $crypt32, expected 5"
cat "$bundle" "$out/microsoft-roots.pem" >"$out/roots.pem"
echo "fetch-corpus: $(grep -vc '^#' "$here/corpus.txt") files and $count Microsoft roots in $out"
