// A host application that is driven by hand: it reads one command a line and passes it to Kivo.
// Try "initialise my-api-key", then "user 40 711234567 ana@example.com Ana".

#include <chrono>
#include <functional>
#include <iostream>
#include <map>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "kivo/Kivo.h"

// Tells the backend which application is calling. Once, in any source file of the host.
KIVO_BUNDLE_IDENTIFIER("com.example.host")

namespace {

using Words = std::vector<std::string>;

/// The word at `index`; a missing one, or "-", stands for a value that the host does not have.
std::optional<std::string> optionalWord(const Words& words, std::size_t index) {
    if (index >= words.size() || words[index] == "-") return std::nullopt;
    return words[index];
}

std::string word(const Words& words, std::size_t index) {
    return optionalWord(words, index).value_or("");
}

// The first call makes the one plugin of the process, later calls return it.
void initialise(const Words& words) {
    kivo::KivoSDK::initialise({.apiKey = word(words, 1), .isProduction = false});
}

void setUser(const Words& words) {
    kivo::KivoSDK::instance()->setUser(optionalWord(words, 1), optionalWord(words, 2),
                                       optionalWord(words, 3), optionalWord(words, 4));
}

void updateDeviceToken(const Words& words) {
    kivo::KivoSDK::instance()->updateDeviceToken(word(words, 1));
}

void setNotificationPermission(const Words& words) {
    kivo::KivoSDK::instance()->setNotificationPermission(word(words, 1) == "yes");
}

// What a push service delivers: texts and other values, by group and name.
void receiveMessage(const Words& words) {
    kivo::RemoteMessage message{{"notification", {{"title", std::string("Hello")}}}};
    if (const auto image = optionalWord(words, 1)) message["notification"]["image"] = *image;
    kivo::KivoSDK::instance()->onMessageReceived(message);
}

void unsetUser(const Words&) { kivo::KivoSDK::instance()->unsetUser(); }

const std::map<std::string, std::function<void(const Words&)>> commands = {
    {"initialise", initialise},          {"user", setUser},
    {"device-token", updateDeviceToken}, {"consent", setNotificationPermission},
    {"message", receiveMessage},         {"unset", unsetUser},
};

Words wordsOf(const std::string& line) {
    std::istringstream stream(line);
    Words words;
    for (std::string word; stream >> word;) words.push_back(word);
    return words;
}

void explain() {
    std::cout << "initialise API-KEY | user COUNTRY PHONE EMAIL NAME | device-token TOKEN\n"
                 "consent yes|no | message [IMAGE-URL] | unset     (- for an absent value)\n";
}

void perform(const Words& words) {
    const auto command = commands.find(words.front());
    if (command == commands.end()) return explain();
    if (words.front() != "initialise" && !kivo::KivoSDK::instance()) return explain();
    command->second(words);
}

}  // namespace

int main() {
    for (std::string line; std::getline(std::cin, line);) {
        const auto words = wordsOf(line);
        if (words.empty()) continue;
        perform(words);
        // Kivo's operations return at once and print their outcome later. A host has no need to
        // wait for them; this one does, so that each outcome stands below its command.
        const bool idle = kivo::KivoSDK::waitUntilIdle(std::chrono::seconds(60));
        std::cout << (idle ? "done" : "still busy") << std::endl;
    }
}
