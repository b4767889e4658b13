#include "CorvaneApp/config/SecretServiceBackend.h"

#include <cstdlib>
#include <memory>

#include <gio/gio.h>
#include <libsecret/secret.h>

#include "CorvaneApp/platform/Log.h"

namespace corvane {
namespace {

constexpr int kProbeTimeoutMs = 2000;
constexpr const char* kSecretsName = "org.freedesktop.secrets";

const SecretSchema* schema() {
    static const SecretSchema kSchema = [] {
        SecretSchema value{};
        value.name = "computer.corvane.Credential";
        // Items written by other tools with the same attributes are ours too.
        value.flags = SECRET_SCHEMA_DONT_MATCH_NAME;
        value.attributes[0] = {"service", SECRET_SCHEMA_ATTRIBUTE_STRING};
        value.attributes[1] = {"account", SECRET_SCHEMA_ATTRIBUTE_STRING};
        return value;
    }();
    return &kSchema;
}

struct ErrorDeleter {
    void operator()(GError* error) const { g_error_free(error); }
};
using ErrorPtr = std::unique_ptr<GError, ErrorDeleter>;

struct ObjectDeleter {
    void operator()(gpointer object) const { g_object_unref(object); }
};
struct VariantDeleter {
    void operator()(GVariant* variant) const { g_variant_unref(variant); }
};
using VariantPtr = std::unique_ptr<GVariant, VariantDeleter>;

// Logs a failed call (the message names the operation, never the secret) and gives its code.
int failure(const char* what, GError* raw) {
    ErrorPtr error(raw);
    if (!error) return 0;
    log::get("KeychainStore")->error("Secret Service {} failed: {}", what, error->message);
    return EIO;
}

VariantPtr call(GDBusConnection* bus, const char* name, const char* path, const char* interface,
                const char* method, GVariant* parameters, const char* replyType) {
    GError* raw = nullptr;
    VariantPtr reply(g_dbus_connection_call_sync(
        bus, name, path, interface, method, parameters, G_VARIANT_TYPE(replyType),
        G_DBUS_CALL_FLAGS_NO_AUTO_START, kProbeTimeoutMs, nullptr, &raw));
    ErrorPtr error(raw);
    return reply;
}

}  // namespace

SecretServiceBackend::Probe SecretServiceBackend::probe(bool displayAvailable) {
    const char* address = std::getenv("DBUS_SESSION_BUS_ADDRESS");
    if (!address || !*address)
        return {false, "no D-Bus session (DBUS_SESSION_BUS_ADDRESS is unset)"};

    GError* raw = nullptr;
    std::unique_ptr<GDBusConnection, ObjectDeleter> bus(g_dbus_connection_new_for_address_sync(
        address,
        static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                          G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION),
        nullptr, nullptr, &raw));
    ErrorPtr error(raw);
    if (!bus)
        return {false, std::string("the session bus can't be reached: ") +
                           (error ? error->message : "unknown")};

    auto owned =
        call(bus.get(), "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
             "NameHasOwner", g_variant_new("(s)", kSecretsName), "(b)");
    gboolean running = FALSE;
    if (owned) g_variant_get(owned.get(), "(b)", &running);
    if (!running) {
        auto names = call(bus.get(), "org.freedesktop.DBus", "/org/freedesktop/DBus",
                          "org.freedesktop.DBus", "ListActivatableNames", nullptr, "(as)");
        bool activatable = false;
        if (names) {
            GVariantIter* iter = nullptr;
            const gchar* name = nullptr;
            g_variant_get(names.get(), "(as)", &iter);
            while (g_variant_iter_next(iter, "&s", &name))
                activatable = activatable || g_strcmp0(name, kSecretsName) == 0;
            g_variant_iter_free(iter);
        }
        if (!activatable) return {false, "no Secret Service on the session bus"};
        // Starting it would leave a locked keyring that only a prompt on a display can open.
        if (!displayAvailable)
            return {false, "the Secret Service isn't running and no display could unlock it"};
        return {true, "the Secret Service can be started on the session bus"};
    }

    auto alias =
        call(bus.get(), kSecretsName, "/org/freedesktop/secrets", "org.freedesktop.Secret.Service",
             "ReadAlias", g_variant_new("(s)", "default"), "(o)");
    const gchar* collection = "/";
    if (alias) g_variant_get(alias.get(), "(&o)", &collection);
    if (g_strcmp0(collection, "/") == 0) {
        if (!displayAvailable)
            return {false,
                    "the Secret Service has no default keyring and no display to create one"};
        return {true,
                "the Secret Service is running (the default keyring will be created on first use)"};
    }
    auto locked =
        call(bus.get(), kSecretsName, collection, "org.freedesktop.DBus.Properties", "Get",
             g_variant_new("(ss)", "org.freedesktop.Secret.Collection", "Locked"), "(v)");
    bool isLocked = true;
    if (locked) {
        GVariant* inner = nullptr;
        g_variant_get(locked.get(), "(v)", &inner);
        VariantPtr value(inner);
        if (value && g_variant_is_of_type(value.get(), G_VARIANT_TYPE_BOOLEAN))
            isLocked = g_variant_get_boolean(value.get());
    }
    if (isLocked && !displayAvailable)
        return {false, "the default keyring is locked and no display can unlock it"};
    return {
        true,
        isLocked
            ? "the Secret Service is running (keyring locked; the desktop will ask to unlock it)"
            : "the Secret Service is running with an unlocked default keyring"};
}

CredentialRead SecretServiceBackend::read(const std::string& service, const std::string& account) {
    GError* raw = nullptr;
    SecretValue* value = secret_password_lookup_binary_sync(
        schema(), nullptr, &raw, "service", service.c_str(), "account", account.c_str(), nullptr);
    if (raw) return {failure("lookup", raw), std::nullopt};
    if (!value) return {ENOENT, std::nullopt};
    gsize length = 0;
    const gchar* bytes = secret_value_get(value, &length);
    std::string data(bytes, length);
    secret_value_unref(value);
    return {0, std::move(data)};
}

int SecretServiceBackend::write(const std::string& service, const std::string& account,
                                const std::string& secret) {
    GError* raw = nullptr;
    SecretValue* value =
        secret_value_new(secret.data(), static_cast<gssize>(secret.size()), "text/plain");
    std::string label = "Corvane worker token (" + service + ", " + account + ")";
    // Storing with the same attributes replaces the item: one item per pair.
    secret_password_store_binary_sync(schema(), SECRET_COLLECTION_DEFAULT, label.c_str(), value,
                                      nullptr, &raw, "service", service.c_str(), "account",
                                      account.c_str(), nullptr);
    secret_value_unref(value);
    return failure("store", raw);
}

void SecretServiceBackend::remove(const std::string& service, const std::string& account) {
    GError* raw = nullptr;
    secret_password_clear_sync(schema(), nullptr, &raw, "service", service.c_str(), "account",
                               account.c_str(), nullptr);
    failure("clear", raw);
}

void SecretServiceBackend::removeAllOfService(const std::string& service) {
    GError* raw = nullptr;
    secret_password_clear_sync(schema(), nullptr, &raw, "service", service.c_str(), nullptr);
    failure("clear", raw);
}

int SecretServiceBackend::itemCount(const std::string& service, const std::string& account) {
    // Asked of the service directly: libsecret's search builds item objects we don't need.
    GError* raw = nullptr;
    std::unique_ptr<GDBusConnection, ObjectDeleter> bus(
        g_bus_get_sync(G_BUS_TYPE_SESSION, nullptr, &raw));
    if (!bus) {
        failure("search", raw);
        return 0;
    }
    GVariantBuilder attributes;
    g_variant_builder_init(&attributes, G_VARIANT_TYPE("a{ss}"));
    g_variant_builder_add(&attributes, "{ss}", "service", service.c_str());
    g_variant_builder_add(&attributes, "{ss}", "account", account.c_str());
    auto reply =
        call(bus.get(), kSecretsName, "/org/freedesktop/secrets", "org.freedesktop.Secret.Service",
             "SearchItems", g_variant_new("(a{ss})", &attributes), "(aoao)");
    if (!reply) return 0;
    VariantPtr unlocked(g_variant_get_child_value(reply.get(), 0));
    VariantPtr locked(g_variant_get_child_value(reply.get(), 1));
    return static_cast<int>(g_variant_n_children(unlocked.get()) +
                            g_variant_n_children(locked.get()));
}

}  // namespace corvane
