# Sourced by the set-up scripts: makes sure the Debian packages named in
# $ARBOR_PACKAGES are installed, installing them when run as root.
missing=""
for p in $ARBOR_PACKAGES; do
  dpkg -s "$p" >/dev/null 2>&1 || missing="$missing $p"
done
if [ -n "$missing" ]; then
  if [ "$(id -u)" = 0 ]; then
    echo "Installing:$missing"
    apt-get install -y $ARBOR_PACKAGES || { apt-get update && apt-get install -y $ARBOR_PACKAGES; } || exit 1
  else
    echo "Missing Debian packages:$missing. Run:"
    echo "  sudo apt-get install -y $ARBOR_PACKAGES"
    exit 1
  fi
fi
