// The machine behind the process: its devices stand at the back of the module's, so that the
// machine's own IP stack works above the switch.
//
//   a device of the module       a TAP device of the same name, number, address and MTU. What the
//   IP
//                                stack sends is read from it, what is posted is written to it.
//                                Flags, addresses and MTU that somebody changes on it are changed
//                                in the process too; an MTU that the module refuses is put back.
//   a device found by its name   one that the machine has, with a packet socket to send by, and one
//                                for each type of frames that the module takes from the IP stack
//
// All TAP devices go with the process, however it ends.
#pragma once

#include <functional>
#include <string>

namespace machine {

// Whether the process may make devices: "" or what is lacking, in words.
std::string lacking();

// From now on devices that the module makes are the machine's. Without it they stay in the process.
void make_devices();

// Tells of every interface of the machine, now and when it changes: its name and whether it is up
// and has carrier; on a thread of this library. What is changed on the devices of make_devices() is
// followed from here on. "" or what failed, in words.
std::string watch(std::function<void(const std::string &name, bool has_link)> link);

} // namespace machine
