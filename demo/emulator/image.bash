# shellcheck shell=bash disable=SC2154  # the command's own: ROOT, HERE, folder
# Builds the image from Debian packages, downloaded and unpacked below
# build/emulator, and from Larkspur, built with the preset "release".  Nothing
# of this machine's system gets into the image, and no package is installed for
# it.
#
# The result is three files: kernel, initramfs (the modules that the disks need,
# and the script that mounts them), image.squashfs (the rest).

PARTS=$ROOT/build/emulator
# This package depends on that of the current kernel.
PACKAGES=(busybox-static bash lighttpd lighttpd-mod-openssl lighttpd-mod-deflate
  dropbear-bin openssl openntpd)
# Loaded in this order, each after the modules that it needs.
MODULES=(virtio_pci virtio_blk virtio_net virtio_rng squashfs ext4)
# The programs from these packages, besides the busybox of busybox-static.
PROGRAMS=(/bin/bash /usr/bin/openssl /usr/sbin/lighttpd /usr/sbin/dropbear
  /usr/bin/dropbearkey /usr/sbin/ntpd /usr/sbin/ntpctl)

build_image()
{
  [[ $(dpkg --print-architecture) == amd64 ]] ||
    die 'the image can be built only on Debian for amd64'
  mkdir -p -- "$PARTS/packages" || die "cannot create the folder \"$PARTS\""
  # Another build may be running in the same folder.
  exec 9>"$PARTS/.lock" && flock 9
  build_larkspur
  fetch_packages
  say 'Creating the image ...'
  tree=$PARTS/tree
  rm -rf -- "$tree"
  if ! lay_out_system || ! lay_out_larkspur || ! lay_out_device ||
    ! add_libraries; then
    die 'the image cannot be assembled'
  elif ! pack_initramfs || ! pack_system; then
    die 'the image cannot be packed'
  fi
  print_sizes
  exec 9>&-
}

build_larkspur()
{
  local log
  say 'Building Larkspur ...'
  if ! log=$(
    cmake -S "$ROOT" -B "$PARTS/larkspur" -G Ninja -DCMAKE_BUILD_TYPE=Release \
      -DORV_POLICY=strict \
      -DORV_STATE_DIR=/var/lib/larkspur/state -DORV_TOOLS=OFF 2>&1 &&
      nice cmake --build "$PARTS/larkspur" 2>&1 &&
      rm -rf -- "$PARTS/installed" &&
      DESTDIR=$PARTS/installed cmake --install "$PARTS/larkspur" --prefix /usr \
        --strip 2>&1
  ); then
    say "$log"
    die 'the build failed'
  fi
}

# --- Debian's packages --------------------------------------------------------

# Sets `names` to the packages, the kernel's, and the libraries that they need.
find_packages()
{
  mapfile -t names < <(
    apt-cache depends --recurse --no-recommends --no-suggests --no-breaks \
      --no-conflicts --no-replaces --no-enhances linux-image-cloud-amd64 \
      "${PACKAGES[@]}" | awk -v left="${PACKAGES[*]} linux-image-cloud-amd64" '
        /^[a-z0-9]/ { package = $1 }
        / (Pre)?Depends: [^<]/ && $NF ~ /^(lib|zlib|linux-image-.*-cloud-)/ {
          needs[package] = needs[package] " " $NF
        }
        END {
          while (split(left, queue) > 0) {
            left = ""
            for (i in queue)
              if (!seen[queue[i]]++) {
                print queue[i]
                left = left " " needs[queue[i]]
              }
          }
        }' | grep -vx linux-image-cloud-amd64 | sort
  )
  [[ ${names[*]} == *linux-image-* ]] ||
    die 'apt knows no package linux-image-cloud-amd64 (apt-get update?)'
}

# Downloads and unpacks packages that do not exist yet in that version.
fetch_packages()
{
  local names=() file
  local -A current=()
  # Neither the package lists nor our choice of packages have changed.
  if [[ $PARTS/packages/done -nt /var/lib/apt/lists &&
    $(<"$PARTS/packages/done") == "${PACKAGES[*]}" ]]; then
    return
  fi
  say "Fetching Debian's packages ..."
  find_packages
  rm -f -- "$PARTS/packages/done"
  (
    # Only the files' names; apt saves them in the current folder.
    cd -- "$PARTS" && apt-get -qq download --print-uris "${names[@]}" |
      cut -d ' ' -f 2 >packages/list && cd -- packages || exit
    apt-get -qq -o APT::Sandbox::User=root download "${names[@]}" \
      >fetch.log 2>&1
  ) || die "cannot fetch packages: $(<"$PARTS/packages/fetch.log")"
  while read -r file; do
    current[${file%.deb}]=1
    [[ -d $PARTS/packages/${file%.deb} ]] || unpack "${file%.deb}"
  done <"$PARTS/packages/list"
  for file in "$PARTS"/packages/*/; do # older versions
    file=${file%/}
    [[ ${current[${file##*/}]-} ]] || rm -rf -- "$file" "$file.deb"
  done
  echo "${PACKAGES[*]}" >"$PARTS/packages/done"
}

unpack()
{
  local to=$PARTS/packages/$1
  rm -rf -- "$to.new"
  if ! dpkg-deb -x "$to.deb" "$to.new" || ! mv -- "$to.new" "$to"; then
    die "cannot unpack $1"
  fi
}

# find_file PATTERN...: sets REPLY to the first of these that a package
# contains, with or without /usr in front, since Debian has moved files there.
find_file()
{
  local path
  for path; do
    # shellcheck disable=SC2086,SC2231  # a pattern
    for REPLY in "$PARTS"/packages/*$path "$PARTS"/packages/*${path#/usr} \
      "$PARTS"/packages/*/usr$path; do
      [[ ! -e $REPLY ]] || return 0
    done
  done
  return 1
}

# --- the tree of the system ---------------------------------------------------

lay_out_system()
{
  local path name applet
  mkdir -p -- "$tree/usr/"{bin,sbin,lib/lighttpd,lib64} \
    "$tree/"{dev,proc,sys,run,tmp,var,root} &&
    ln -s usr/bin "$tree/bin" && ln -s usr/sbin "$tree/sbin" &&
    ln -s usr/lib "$tree/lib" && ln -s usr/lib64 "$tree/lib64" &&
    cp -R -- "$HERE/root/." "$tree" || return
  for path in "${PROGRAMS[@]}"; do
    find_file "$path" && cp -L -- "$REPLY" "$tree$path" || return
  done
  find_file /bin/busybox && cp -- "$REPLY" "$tree/bin/busybox" || return
  busybox=$REPLY
  find_file /usr/lib/lighttpd/mod_cgi.so &&
    cp -- "${REPLY%/*}"/../lighttpd/*.so "$tree/usr/lib/lighttpd" || return
  for name in openssl deflate; do
    find_file "/usr/lib/lighttpd/mod_$name.so" &&
      cp -- "$REPLY" "$tree/usr/lib/lighttpd" || return
  done
  find_file /etc/ssl/openssl.cnf && mkdir -p -- "$tree/usr/lib/ssl" &&
    cp -- "$REPLY" "$tree/usr/lib/ssl" || return
  for applet in $("$busybox" --list); do
    [[ -e $tree/bin/$applet || -e $tree/sbin/$applet ]] ||
      ln -s busybox "$tree/bin/$applet" || return
  done
  ln -s ../bin/busybox "$tree/sbin/init"
}

# libraries FILE...: prints the libraries that these programs and libraries
# need.
libraries()
{
  readelf -d -- "$@" 2>/dev/null | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p' |
    sort -u
}

# Copies the libraries of all programs in the tree, and the libraries of these.
add_libraries()
{
  local name added=1
  find_file /lib/x86_64-linux-gnu/ld-linux-x86-64.so.2 \
    /lib64/ld-linux-x86-64.so.2 &&
    cp -L -- "$REPLY" "$tree/lib64/ld-linux-x86-64.so.2" || return
  while ((added)); do
    added=0
    while read -r name; do
      [[ ! -e $tree/lib/$name && ! -e $tree/lib64/$name ]] || continue
      find_file "/lib/x86_64-linux-gnu/$name" || die "no package has $name"
      cp -L -- "$REPLY" "$tree/lib" || return
      added=1
    done < <(find "$tree/usr" -type f \( -perm -100 -o -name '*.so*' \) \
      -print0 | xargs -0 bash -c "$(declare -f libraries); libraries \"\$@\"" -)
  done
}

# --- Larkspur and the device's forms ------------------------------------------

# Everything that is installed, except the manuals, the completion for shells
# and the other web servers.
lay_out_larkspur()
{
  local data=$tree/usr/share/larkspur
  cp -R -- "$PARTS/installed/usr/." "$tree/usr" &&
    rm -rf -- "$tree/usr/share/"{man,bash-completion} &&
    rm -f -- "$data/servers/"{nginx.conf,apache.conf,busybox*,README.md} \
      "$data/boot/"*.service &&
    mkdir -p -- "$tree/etc/larkspur" "$tree/etc/default" &&
    cp -- "$data/boot/larkspur.default" "$tree/etc/default/larkspur" &&
    install -m 755 -- "$data/boot/larkspur-acts.init" \
      "$tree/etc/init.d/S45larkspur"
}

# The device's forms, then the layers given on the command line.
lay_out_device()
{
  local to=$tree/usr/share/larkspur layer
  mkdir -p -- "$to" || return
  while read -r layer; do
    copy_layer "$layer" "$to" || return
  done <<<"$HERE/device"${device:+$'\n'${device%$'\n'}}
  rm -rf -- "$to/tests"
  ln -sfn -- /usr/sbin/orv-store "$to/scripts/orv-store" &&
    mv -- "$to/system_type" "$tree/etc/system_type" &&
    chmod -R go-w,a+rX -- "$tree"
}

# copy_layer FOLDER TO: links to files elsewhere become these files; links to
# orv-store in the same folder stay.
copy_layer()
{
  local link
  cp -R -- "$1/." "$2" || return
  while IFS= read -r -d '' link; do
    cp -L --remove-destination -- "$1/$link" "$2/$link" || return
  done < <(cd -- "$1" && find . -type l -lname '*/*' -print0)
}

# --- packing ------------------------------------------------------------------

# module NAME: prints the paths of the modules that it needs, then its own;
# nothing if it is built into the kernel.
module()
{
  local file name
  [[ ! ${loaded[$1]-} ]] || return 0
  loaded[$1]=1
  file=$(find "$modules" -name "$1.ko*" -o -name "${1//_/-}.ko*" | head -n 1)
  [[ $file ]] || return 0
  for name in $(module_text "$file" | tr '\0' '\n' |
    sed -n 's/^depends=//p; s/^softdep=pre: //p' | tr , ' '); do
    module "$name"
  done
  printf '%s\n' "$file"
}

module_text()
{
  case $1 in
    *.xz) xz -dc -- "$1" ;;
    *) cat -- "$1" ;;
  esac
}

pack_initramfs()
{
  local -A loaded=()
  local to=$PARTS/initramfs modules name file number=10
  find_file /lib/modules/*/kernel || return
  modules=$REPLY
  rm -rf -- "$to"
  mkdir -p -- "$to/"{bin,dev,proc,lib,system} &&
    cp -- "$busybox" "$to/bin/busybox" &&
    install -m 755 -- "$HERE/initramfs/init" "$to/init" || return
  for name in "${MODULES[@]}"; do
    module "$name"
  done >"$PARTS/modules"
  while read -r file; do
    name=${file##*/}
    module_text "$file" >"$to/lib/$number-${name%%.*}.ko" || return
    number=$((number + 1))
  done <"$PARTS/modules"
  (cd -- "$to" && find . | "$busybox" cpio -o -H newc -R 0:0 | gzip -n) \
    >"$folder/initramfs" 2>"$PARTS/pack.log" || return
  find_file /boot/vmlinuz-* && cp -- "$REPLY" "$folder/kernel"
}

pack_system()
{
  rm -f -- "$folder/image.new"
  mksquashfs "$tree" "$folder/image.new" -all-root -noappend -quiet \
    -no-progress -comp gzip >"$PARTS/pack.log" 2>&1 &&
    mv -f -- "$folder/image.new" "$folder/image.squashfs"
}

# --- sizes --------------------------------------------------------------------

# size NAME PATH...: prints the size of uncompressed files, in KiB.
size()
{
  local name=$1 paths=() path
  shift
  for path; do # patterns
    # shellcheck disable=SC2206
    paths+=("$tree"$path)
  done
  printf '  %-36s %8s KiB\n' "$name" "$(du -cb -- "${paths[@]}" | tail -n 1 |
    awk '{ printf "%d", ($1 + 1023) / 1024 }')" >&2
}

print_sizes()
{
  local data=/usr/share/larkspur
  say 'Larkspur in the image:'
  size 'orv, the pages' /usr/lib/cgi-bin/orv
  size 'orv-store, the settings' /usr/sbin/orv-store
  size 'orvctl, the terminal' /usr/sbin/orvctl
  size 'boot and actions' '/usr/sbin/larkspur-*'
  size 'the library for scripts' $data/lib
  size 'style and browser scripts' $data/www
  size "this device's forms" $data/{templates,scripts,defaults,actions}
  say 'Debian in the image:'
  size 'busybox' /usr/bin/busybox
  size 'bash' /usr/bin/bash
  size 'lighttpd' /usr/sbin/lighttpd /usr/lib/lighttpd
  size 'dropbear, openssl, ntpd' /usr/sbin/dropbear /usr/bin/dropbearkey \
    /usr/bin/openssl /usr/sbin/ntpd /usr/sbin/ntpctl
  size 'libraries' '/usr/lib/*.so*' /usr/lib64
  printf '  %-36s %8s KiB\n' 'the image, compressed' \
    "$(($(stat -c %s "$folder/image.squashfs") / 1024))" \
    'kernel and initramfs' "$((($(stat -c %s "$folder/kernel") + \
    $(stat -c %s "$folder/initramfs")) / 1024))" >&2
}
