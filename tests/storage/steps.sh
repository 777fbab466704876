# What the steps of the transcripts here are made of: the two database files (a.bin, b.bin and
# large.bin are good ones, of versions 1, 2 and 3), and a process that uses the service.
active=offlinetz/lastcombinedTimezone.bin
backup=offlinetz/lastcombinedTimezonebackup.bin

# put ACTIVE BACKUP: copies of these files; or a directory, a pipe, one that is opened
# and closed at its other end, a link to what stands behind
# "->", another name of the other file (=), or nothing (-).
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
        until grep -q ') S ' /proc/$!/stat; do :; done ;;  # It waits for a writer now.
      '->/'*) ln -s "${1#??}" $path ;;
      '->'*) ln -s "$PWD/${1#??}" $path ;;
      *) cp "$1" $path ;;
    esac
    shift
  done
}

# ends COMMAND ...: the first line of what it says, or the signal that ended it (KILL: after a
# minute).
ends() {
  timeout -s KILL 60 "$@" >said 2>&1
  code=$?
  [ $code -le 128 ] && head -n 1 said || echo "SIG$(kill -l $((code - 128)))"
}

# update FILE: what comes of its installation.
update() {
  ends $SERVICE update --force "$1"
}

# next: what the next start finds, where the two are files again.
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

# expect_database WHAT: says what came before, and what the next start finds if no good database.
expect_database() {
  found=$(next)
  case $found in
    'running, version '[12]) ;;
    *) echo "$1; then $found" ;;
  esac
}

# try ACTIVE BACKUP FILE: all that, as one line.
try() {
  put "$1" "$2"
  echo "$1, $2: $(update "$3"); then $(next)"
}

# short LIMIT VALUE ...: installations within each limit, some of which must come to nothing in the
# service. Tells what else they say and what the next start must not find.
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

# is_good PATH: whether it is one of the two databases that are installed at random.
is_good() {
  cmp -s "$1" a.bin || cmp -s "$1" b.bin
}

# kill_at_random COUNT [SEED]: kills in the midst of starts, restores, downloads and installations,
# each at a moment of what a whole one takes. Says what the next start finds beside a good database,
# and, after hundreds, if no kill left a file half written.
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

# on_disk KILOBYTES|ro ACTIVE BACKUP COMMAND: what it says on a disk of a megabyte that is full but
# for so much, or read-only, and what the next start finds when the disk is in order again. Mounts:
# for a name space of its own.
on_disk() {
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
