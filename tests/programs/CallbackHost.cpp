#include <signal.h>
#include <systemd/sd-bus.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <set>
#include <string>
#include <string_view>
#include <vector>

// A host application for tests: it takes names on the session bus, describes an object under each,
// and prints what it receives, a line a message: the member and its arguments.
//
//     CallbackHost [--name N]... [--answers MEMBER]... [--description FILE]
//                  [--when-asked leave|hang|stop|flood] [--leave-after COUNT] [--prints no]
namespace {

struct Options {
  std::vector<std::string> names;
  std::set<std::string> answers;
  // What is sent as description in place of a proper one.
  std::string description;
  // What happens when somebody asks for the description.
  std::string whenAsked;
  int leaveAfter = -1;
  bool prints = true;
};

Options options;

constexpr char kInterface[] = "com.quorvale.QVVELMErrorCallbackProtocol";

std::string description() {
  if (!options.description.empty()) return options.description;
  std::string xml =
      "<!DOCTYPE node PUBLIC \"-//freedesktop//DTD D-BUS Object Introspection 1.0//EN\""
      " \"http://www.freedesktop.org/standards/dbus/1.0/introspect.dtd\">\n<node>";
  xml += std::string("<interface name=\"") + kInterface + "\">";
  for (const std::string& member : options.answers) xml += "<method name=\"" + member + "\"/>";
  return xml + "</interface></node>";
}

std::string textOf(sd_bus_message* message) {
  const char* text = "";
  sd_bus_message_read_basic(message, SD_BUS_TYPE_STRING, &text);
  return text;
}

std::string variantOf(sd_bus_message* message) {
  const char* contents = nullptr;
  sd_bus_message_peek_type(message, nullptr, &contents);
  const std::string type = contents;
  sd_bus_message_enter_container(message, SD_BUS_TYPE_VARIANT, type.c_str());
  std::string value;
  if (type == "s") {
    value = textOf(message);
  } else if (long long number = 0; type == "x") {
    sd_bus_message_read_basic(message, SD_BUS_TYPE_INT64, &number);
    value = std::to_string(number);
  }
  sd_bus_message_exit_container(message);
  return type + ":" + value;
}

std::string dictionaryOf(sd_bus_message* message) {
  std::string text = "{";
  sd_bus_message_enter_container(message, SD_BUS_TYPE_ARRAY, "{sv}");
  while (sd_bus_message_enter_container(message, SD_BUS_TYPE_DICT_ENTRY, "sv") > 0) {
    text += (text.size() > 1 ? ", " : "") + textOf(message) + "=";
    text += variantOf(message);
    sd_bus_message_exit_container(message);
  }
  sd_bus_message_exit_container(message);
  return text + "}";
}

void print(sd_bus_message* message) {
  std::string line = sd_bus_message_get_member(message);
  char type = 0;
  while (sd_bus_message_peek_type(message, &type, nullptr) > 0) {
    line += ' ';
    line += type == SD_BUS_TYPE_STRING ? textOf(message) : dictionaryOf(message);
  }
  if (sd_bus_message_get_expect_reply(message) != 0) line += " (waits)";
  std::printf("%s\n", line.c_str());
  std::fflush(stdout);
}

// Sends the asking process messages that it never asked for, as fast as the bus takes them.
[[noreturn]] void flood(sd_bus_message* question) {
  sd_bus* bus = sd_bus_message_get_bus(question);
  const std::string text(10000, 'x');
  for (;;) {
    sd_bus_message* signal = nullptr;
    sd_bus_message_new_signal(bus, &signal, "/flood", "com.quorvale.Flood", "Drop");
    sd_bus_message_append(signal, "s", text.c_str());
    sd_bus_message_set_destination(signal, sd_bus_message_get_sender(question));
    if (sd_bus_send(bus, signal, nullptr) < 0 || sd_bus_flush(bus) < 0) std::_Exit(1);
    sd_bus_message_unref(signal);
  }
}

int describe(sd_bus_message* question) {
  if (options.prints) std::printf("(asked)\n");
  std::fflush(stdout);
  if (options.whenAsked == "leave") std::_Exit(0);
  if (options.whenAsked == "stop") ::raise(SIGSTOP);
  if (options.whenAsked == "flood") flood(question);
  if (options.whenAsked == "hang") return 1;
  return sd_bus_reply_method_return(question, "s", description().c_str());
}

int receive(sd_bus_message* message, void*, sd_bus_error*) {
  if (sd_bus_message_is_method_call(message, "org.freedesktop.DBus.Introspectable", "Introspect") >
      0) {
    return describe(message);
  }
  if (options.prints) print(message);
  if (--options.leaveAfter == 0) std::_Exit(0);
  return 1;
}

bool readOptions(const std::vector<std::string>& words) {
  for (std::size_t i = 0; i + 1 < words.size(); i += 2) {
    const std::string& value = words[i + 1];
    if (words[i] == "--name") options.names.push_back(value);
    if (words[i] == "--answers") options.answers.insert(value);
    if (words[i] == "--when-asked") options.whenAsked = value;
    if (words[i] == "--leave-after") options.leaveAfter = std::stoi(value);
    if (words[i] == "--prints") options.prints = value != "no";
    if (words[i] == "--description") {
      std::ifstream file(value, std::ios::binary);
      options.description.assign(std::istreambuf_iterator<char>(file), {});
    }
  }
  return words.size() % 2 == 0;
}

int take(sd_bus* bus, const std::string& name) {
  int result = sd_bus_add_object(bus, nullptr, ("/com/quorvale/" + name).c_str(), receive, nullptr);
  if (result >= 0) result = sd_bus_request_name(bus, ("com.quorvale." + name).c_str(), 0);
  return result;
}

}  // namespace

int main(int argc, char** argv) {
  if (!readOptions({argv + 1, argv + argc})) return 64;
  sd_bus* bus = nullptr;
  int result = sd_bus_open_user(&bus);
  for (const std::string& name : options.names) {
    if (result >= 0) result = take(bus, name);
  }
  if (result >= 0) std::printf("(ready)\n");
  std::fflush(stdout);
  while (result >= 0) {
    result = sd_bus_process(bus, nullptr);
    if (result == 0) result = sd_bus_wait(bus, UINT64_MAX);
  }
  return 1;
}
