# The steps of storage.transcript and disks.transcript. They change the two database files and run
# processes that use the service. a.bin, b.bin and large.bin are good databases of versions 1, 2 and 3.
active=offlinetz/lastcombinedTimezone.bin
backup=offlinetz/lastcombinedTimezonebackup.bin

# put ACTIVE BACKUP: replaces the two files by copies of these files. In place of a file there can be
# a directory, a pipe, a pipe that a process opens for reading and closes (read-pipe), a link to the
# path after "->", a hard link to the other file (=), or nothing (-).
put() {
  for path in $active $backup; do
    rm -rf $path
    case $1 in
      -) ;;
      =) ln $active $path ;;
      directory) mkdir $path ;;
      pipe) mkfifo $path ;;
      read-pipe)
        mkfifo $path
        sh -c ": <$path" &
        until grep -q ') S ' /proc/$!/stat; do :; done ;;  # Now it waits for a writer.
      '->/'*) ln -s "${1#??}" $path ;;
      '->'*) ln -s "$PWD/${1#??}" $path ;;
      *) cp "$1" $path ;;
    esac
    shift
  done
}

# ends COMMAND ...: prints the first line of its output, or the signal that ended it. After a minute
# that is KILL.
ends() {
  timeout -s KILL 60 "$@" >said 2>&1
  code=$?
  [ $code -le 128 ] && head -n 1 said || echo "SIG$(kill -l $((code - 128)))"
}

# update FILE: prints the outcome of its installation.
update() {
  ends $SERVICE update --force "$1"
}

# next: removes what is not a file, and prints what the next start finds.
next() {
  for path in $active $backup; do
    [ -f $path ] && [ ! -L $path ] || rm -rf $path
  done
  found=$(ends $SERVICE status)
  case $found in
    *'version 1') cmp $active a.bin ;;
    *'version 2') cmp $active b.bin ;;
  esac
  echo "$found"
}

# expect_database WHAT: prints WHAT and what the next start finds, unless that is a good database.
expect_database() {
  found=$(next)
  case $found in
    'running, version '[12]) ;;
    *) echo "$1; then $found" ;;
  esac
}

# try ACTIVE BACKUP FILE: puts the files, installs FILE, and prints the outcome in one line.
try() {
  put "$1" "$2"
  echo "$1, $2: $(update "$3"); then $(next)"
}

# short LIMIT VALUE ...: installs a database within each limit. Some installations must succeed and
# some must fail in the service. Prints other outcomes, and those that leave no good database.
short() {
  limit=$1 installed=0 failed=0
  shift
  for value; do
    put a.bin a.bin
    said=$(ends prlimit "--$limit=$value" $SERVICE update --force b.bin)
    expect_database "$limit $value: $said"
    case $said in
      'installed version 2 (before: version 1)') installed=1 ;;
      'no database in use: '* | 'refused: the service did not '* | *': the service object could not be created') failed=1 ;;
      offlinetz:\ * | *': error while loading shared libraries: '* | 'zonedetect.cpp '*) ;;
      *) echo "$limit $value: $said" ;;
    esac
  done
  [ $installed$failed = 11 ] && echo "some were installed, some were not"
}

# is_good PATH: succeeds if the file is one of the two databases that kill_at_random installs.
is_good() {
  cmp -s "$1" a.bin || cmp -s "$1" b.bin
}

# kill_at_random COUNT [SEED]: kills processes during starts, restores, downloads and installations, at
# random moments of the time that a whole one takes. Prints the kills after which the next start finds
# no good database and, if there were hundreds, whether none left a file half written.
kill_at_random() {
  put a.bin a.bin
  began=$(date +%s%N)
  update b.bin >/dev/null
  most=$(($(date +%s%N) - began))
  seed=${2:-$$}
  torn=0 file=a.bin
  for moment in $(awk -v count="$1" -v seed="$seed" -v most=$most 'BEGIN {
      srand(seed); while (count-- > 0) printf "%.6f ", most / 1e9 * rand() }'); do
    [ $file = a.bin ] && is_good $backup && rm -f $active  # A restore begins.
    timeout --foreground -s KILL "$moment" $SERVICE update --force $file >said 2>&1
    for path in $active $backup; do
      is_good $path || [ ! -e $path ] || torn=$((torn + 1))
    done
    expect_database "seed $seed, $file killed after $moment s"
    [ $file = a.bin ] && file=b.bin || file=a.bin
  done
  [ $torn -gt 0 ] || [ "$1" -lt 300 ] || echo "no file was torn"
}

# first_database: lets the host process install the image's database: with too small a file limit,
# again without it, beside a database, and without a directory.
first_database() {
  cp a.bin image.bin
  put - -
  (ulimit -f 100; ends $HOST_PROCESS; ls offlinetz)
  ends $HOST_PROCESS; next
  put b.bin -
  ends $HOST_PROCESS; next
  ls offlinetz
  rm -r offlinetz
  ends $HOST_PROCESS
}

# cut_while_mapped: empties the active file after a process has answered from it, and lets the process
# look up another point.
cut_while_mapped() {
  put a.bin a.bin
  (
    echo 1 2
    for i in $(seq 3000); do [ -s said ] && break; sleep 0.01; done
    : >$active
    echo 1 2
  ) | ends $SERVICE lookup
  next
}

# on_disk KILOBYTES|ro ACTIVE BACKUP COMMAND: prints the command's outcome on a disk of a megabyte that
# has only so much space left or is read-only, and what the next start finds when the disk is writable
# and empty again.
on_disk() {
  unshare --mount sh -c '. "$TESTS/storage/steps.sh"; on_mounted_disk "$@"' - "$@"
}
on_mounted_disk() {
  mount -t tmpfs -o size=1m none offlinetz || return
  put "$2" "$3"
  if [ "$1" = ro ]; then
    mount -o remount,ro offlinetz
  else
    free=$(df --output=avail -k offlinetz | tail -n 1)
    head -c $(((free - $1) * 1024)) /dev/zero >offlinetz/filler
  fi
  said=$($4 2>&1 | head -n 1)
  mount -o remount,rw offlinetz
  rm -f offlinetz/filler
  echo "$said; then $(next)"
}
