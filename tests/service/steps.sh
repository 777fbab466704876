# The steps of library.transcript.

# virtual_slots: the virtual functions of each class of the library, in the order of their slots.
virtual_slots() {
  default=$SERVICE_SOURCES
  platform=$default/../../../../../platform
  echo '#include <Offlinetimezone.h>' |
    g++ -std=c++17 -I "$default" -I "$default/../include" -I "$platform/include" \
      -I "$platform/libs/include" -S -o /dev/null -fdump-lang-class=slots -x c++ - || return
  awk '
    /^Vtable for .*::Offlinetimezone(Callback|::DeathRecipient)?$/ {
      sub(/.*::/, "")
      name = $0
      functions = ""
    }
    name && /::~?[A-Za-z0-9]+$/ { sub(/.*::/, ""); functions = functions " " $0 }
    name && /^$/ { print name functions; name = "" }' slots
}
