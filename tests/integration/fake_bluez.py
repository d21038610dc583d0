#!/usr/bin/python3
"""A stand-in for the Bluetooth daemon on a private bus: one adapter, /org/bluez/hci0, with the
adapter and advertising-manager interfaces, and org.velora.Test at /org/velora/test for the tests.

Like the daemon, RegisterAdvertisement reads the advertisement's properties back from the client
before it answers, so what is recorded is what the client really serves over the bus.

usage: fake_bluez.py BUS_ADDRESS [--no-advertising]   (prints "ready" once it owns org.bluez)
"""
import sys

import dbus
import dbus.mainloop.glib
import dbus.service
from gi.repository import GLib

ADAPTER_PATH = "/org/bluez/hci0"
ADAPTER = "org.bluez.Adapter1"
MANAGER = "org.bluez.LEAdvertisingManager1"
ADVERTISEMENT = "org.bluez.LEAdvertisement1"
PROPERTIES = "org.freedesktop.DBus.Properties"
OBJECT_MANAGER = "org.freedesktop.DBus.ObjectManager"
TEST = "org.velora.Test"


def bluez_error(name, message):
    return dbus.exceptions.DBusException(message, name=name)


def describe(properties):
    """'type=broadcast data=004c:0215...' from the advertisement's properties."""
    text = "type=%s" % properties.get("Type", "?")
    for company, payload in sorted(properties.get("ManufacturerData", {}).items()):
        text += " data=%04x:%s" % (company, "".join("%02x" % b for b in payload))
    return text


class Root(dbus.service.Object):
    def __init__(self, bus, adapter):
        super().__init__(bus, "/")
        self.adapter = adapter

    @dbus.service.method(OBJECT_MANAGER, out_signature="a{oa{sa{sv}}}")
    def GetManagedObjects(self):
        if not self.adapter.present:
            return dbus.Dictionary({}, signature="oa{sa{sv}}")
        return {ADAPTER_PATH: self.adapter.interfaces()}

    @dbus.service.signal(OBJECT_MANAGER, signature="oas")
    def InterfacesRemoved(self, path, interfaces):
        pass


class Adapter(dbus.service.Object):
    def __init__(self, bus, can_advertise):
        super().__init__(bus, ADAPTER_PATH)
        self.bus = bus
        self.can_advertise = can_advertise
        self.present = True
        self.powered = True
        self.registered = {}  # path -> client's unique name
        self.fail_next = None
        self.events = []

    def interfaces(self):
        found = {ADAPTER: {"Powered": dbus.Boolean(self.powered), "Address": "00:11:22:33:44:55"}}
        if self.can_advertise:
            found[MANAGER] = dbus.Dictionary({}, signature="sv")
        return found

    @dbus.service.method(PROPERTIES, in_signature="ss", out_signature="v")
    def Get(self, interface, name):
        return self.interfaces()[interface][name]

    @dbus.service.method(PROPERTIES, in_signature="s", out_signature="a{sv}")
    def GetAll(self, interface):
        return self.interfaces().get(interface, {})

    @dbus.service.signal(PROPERTIES, signature="sa{sv}as")
    def PropertiesChanged(self, interface, changed, invalidated):
        pass

    @dbus.service.method(MANAGER, in_signature="oa{sv}", sender_keyword="sender",
                         async_callbacks=("reply", "error"))
    def RegisterAdvertisement(self, path, options, sender, reply, error):
        if self.fail_next:
            name, message = self.fail_next
            self.fail_next = None
            self.events.append("refuse %s %s" % (path, name))
            error(bluez_error(name, message))
            return
        if path in self.registered:
            error(bluez_error("org.bluez.Error.AlreadyExists", "Already Exists"))
            return

        def read_back(properties):
            self.registered[path] = sender
            self.events.append("register %s %s" % (path, describe(properties)))
            reply()

        def unreadable(failure):
            self.events.append("unreadable %s" % path)
            error(bluez_error("org.bluez.Error.Failed", "Failed to parse advertisement."))

        # Asynchronous, so that this process keeps serving while the client answers.
        self.bus.get_object(sender, path, introspect=False).GetAll(
            ADVERTISEMENT, dbus_interface=PROPERTIES, reply_handler=read_back, error_handler=unreadable)

    @dbus.service.method(MANAGER, in_signature="o")
    def UnregisterAdvertisement(self, path):
        self.events.append("unregister %s" % path)
        if self.registered.pop(path, None) is None:
            raise bluez_error("org.bluez.Error.DoesNotExist", "Does Not Exist")

    def release_all(self):
        for path, owner in sorted(self.registered.items()):
            self.events.append("release %s" % path)
            self.bus.get_object(owner, path, introspect=False).Release(
                dbus_interface=ADVERTISEMENT, reply_handler=lambda: None, error_handler=lambda e: None)
        self.registered.clear()


class Control(dbus.service.Object):
    def __init__(self, bus, root, adapter):
        super().__init__(bus, "/org/velora/test")
        self.root = root
        self.adapter = adapter

    @dbus.service.method(TEST, in_signature="b")
    def SetPowered(self, powered):
        adapter = self.adapter
        if adapter.powered == bool(powered):
            return
        adapter.powered = bool(powered)
        if not powered:
            adapter.release_all()  # a controller switched off loses what it advertised
        adapter.PropertiesChanged(ADAPTER, {"Powered": dbus.Boolean(powered)}, dbus.Array([], signature="s"))

    @dbus.service.method(TEST, in_signature="ss")
    def FailNextRegister(self, name, message):
        self.adapter.fail_next = (name, message)

    @dbus.service.method(TEST)
    def ReleaseAll(self):
        self.adapter.release_all()

    @dbus.service.method(TEST)
    def RemoveAdapter(self):
        self.adapter.present = False
        self.adapter.registered.clear()
        self.root.InterfacesRemoved(ADAPTER_PATH, list(self.adapter.interfaces().keys()))

    @dbus.service.method(TEST, out_signature="as")
    def Events(self):
        return dbus.Array(self.adapter.events, signature="s")


def main():
    dbus.mainloop.glib.DBusGMainLoop(set_as_default=True)
    bus = dbus.bus.BusConnection(sys.argv[1])
    adapter = Adapter(bus, can_advertise="--no-advertising" not in sys.argv[2:])
    root = Root(bus, adapter)
    control = Control(bus, root, adapter)
    name = dbus.service.BusName("org.bluez", bus)
    print("ready", flush=True)
    GLib.MainLoop().run()
    del control, name


if __name__ == "__main__":
    main()
