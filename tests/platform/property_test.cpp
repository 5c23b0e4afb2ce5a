#include "platform/CKrProperty.h"

#include "tests/Files.h"
#include "tests/Threads.h"

#include <climits>
#include <thread>

using std::string;

namespace {

string logged; // on the store's log since the last look

class Property : public Scratch {
protected:
  void SetUp() override {
    Scratch::SetUp();
    krLogAddPrinter(krLogGetLogger("comps.kr"), "test", [](const char* message) { logged += string(message) + '\n'; });
    store = CKrProperty::getInstance();
    EXPECT_EQ(takeLog(), "Loading property file 'properties.txt'\n"
                         "CKrProperty::loadFile Unable to open 'properties.txt'\n");
  }
  string takeLog() { return std::exchange(logged, ""); }
  string get(const char* name, int size = 0) {
    char buffer[600];
    return store->getProperty(name, buffer, "dflt", size);
  }
  CKrProperty* store = nullptr;
};

/// A medium that is no file.
KrPropMap medium{{"a", "1"}};
string uses;
string takeUses() { return std::exchange(uses, ""); }
bool works = true;
bool loadMedium(char* file, KrPropMap& settings) {
  uses += string("load ") + file + " ";
  if (string(file) == "throw") throw std::bad_alloc();
  if (string(file) == "throw 7") throw 7;
  settings = medium;
  return works;
}
bool storeMedium(char* file, KrPropMap& settings) {
  uses += string("store ") + file + " ";
  if (works) medium = settings;
  return works;
}

} // namespace

TEST_F(Property, TextFile) {
  const string longest(509, 'v');
  const struct {
    string file;
    KrPropMap settings;
  } table[] = {{"a=1\r\nb=x=y\n\nc=3\n", {{"a", "1"}, {"b", "x=y"}}},
               {"a=1\n\rb=2\rno\n=e\n b = \na=9", {{"a", "9"}, {"b", "2"}, {"", "e"}, {" b ", " "}}},
               {"\na=1\n", {}},
               {"a=1\r\n\r\nb=2", {{"a", "1"}}},
               {string("a=1\n\0\0\0=\nb=2", 12), {{"a", "1"}, {"b", "2"}}}, // what a power cut leaves
               {"a=" + longest + "\nb=2\n", {{"a", longest}, {"b", "2"}}},
               {"a=" + longest + "=" + longest + "\r\nb=2", {{"a", longest}, {"b", "2"}}}};
  char file[] = "file", directory[] = ".", full[] = "/dev/full", missing[] = "no/file";
  for (const auto& row : table) {
    EXPECT_EQ(takeLog(), "");
    write(file, row.file);
    KrPropMap settings{{"old", "1"}};
    EXPECT_TRUE(CKrProperty::loadFile(file, settings));
    EXPECT_EQ(settings, row.settings) << row.file;
  }
  EXPECT_EQ(takeLog(), "CKrProperty::loadFile Line of more than 511 characters cut in 'file'\n");
  KrPropMap settings{{"b", "2=3"}, {"\xff", "4"}, {"a", ""}};
  EXPECT_TRUE(CKrProperty::storeFile(file, settings));
  EXPECT_EQ(contents(file), "a=\nb=2=3\n\xff=4\n");
  for (char* const refused : {full, missing})
    EXPECT_FALSE(CKrProperty::storeFile(refused, settings));
  for (char* const refused : {directory, missing})
    EXPECT_FALSE(CKrProperty::loadFile(refused, settings));
  EXPECT_TRUE(settings.empty());
}

TEST_F(Property, Values) {
  store->setProperty("text", "4711x");
  store->setProperty("low", INT_MIN);
  store->setProperty("high", "99999999999999999999");
  EXPECT_EQ(get("text"), "4711x");
  EXPECT_EQ(get("none"), "dflt");
  EXPECT_EQ(get("none", 3), "df");
  EXPECT_EQ(get("text", 1), "");
  EXPECT_EQ(get("text", 99), "4711x");
  EXPECT_EQ(get("low"), "-2147483648");
  char same[] = "keep";
  EXPECT_STREQ(store->getProperty("text", store->getProperty("none", same, same, 3), same, -1), "ke");
  EXPECT_STREQ(store->getProperty("none", same, nullptr, 3), "");
  store->setProperty("word", "abc");
  for (const auto& [name, number] :
       std::map<const char*, int>{{"text", 4711}, {"none", 7}, {"low", INT_MIN}, {"high", INT_MAX}, {"word", 0}})
    EXPECT_EQ(store->getProperty(name, 7), number) << name;
  EXPECT_EQ(store->getLength("text", "x"), 5u);
  EXPECT_EQ(store->getLength("none", "xx"), 2u);
  EXPECT_EQ(store->getLength("n", nullptr), 0u);
  EXPECT_EQ(takeLog(), "");
  store->setProperty(nullptr, "x");
  EXPECT_EQ(takeLog(), "CKrProperty::setProperty: error, null parameter\n");
  store->setProperty("text", nullptr);
  EXPECT_EQ(takeLog(), "CKrProperty::setProperty: error, null parameter\n");
  EXPECT_EQ(store->getProperty(nullptr, same, "x", 2), same);
  EXPECT_EQ(takeLog(), "CKrProperty::getProperty: error, null parameter\n");
  EXPECT_EQ(store->getProperty("x", nullptr, "x", 2), nullptr);
  EXPECT_EQ(takeLog(), "CKrProperty::getProperty: error, null parameter\n");
  EXPECT_EQ(store->getProperty(nullptr, 7), 0);
  EXPECT_EQ(takeLog(), "CKrProperty::getProperty: error, null parameter\n");
  EXPECT_EQ(store->getLength(nullptr, "x"), 0u);
  EXPECT_EQ(takeLog(), "CKrProperty::getLength: error, null parameter\n");
}

TEST_F(Property, StoresOnlyChanges) {
  EXPECT_TRUE(store->store());
  EXPECT_FALSE(std::filesystem::exists("properties.txt")); // nothing changed
  store->setProperty("sn", "1");
  EXPECT_FALSE(store->store("/dev/full"));
  EXPECT_TRUE(store->store()); // it was still changed
  EXPECT_EQ(contents("properties.txt"), "sn=1\n");
  write("properties.txt", "sn=2\n");
  store->setProperty("sn", "1"); // it is so
  EXPECT_TRUE(store->store());
  EXPECT_TRUE(store->load());
  EXPECT_EQ(get("sn"), "2");
  store->setProperty("sn", 3);
  EXPECT_TRUE(store->load()); // stores first
  EXPECT_EQ(get("sn"), "3");
  EXPECT_FALSE(store->load("missing")); // the settings are gone then
  EXPECT_EQ(get("sn"), "dflt");
}

TEST_F(Property, OneInstancePerFileWithItsCallbacks) {
  EXPECT_EQ(CKrProperty::getInstance("properties.txt", loadMedium), store);
  CKrProperty* const other = CKrProperty::getInstance("medium", loadMedium, storeMedium);
  EXPECT_EQ(CKrProperty::getInstance("medium"), other);
  EXPECT_EQ(takeUses(), "load medium ");
  EXPECT_EQ(other->getProperty("a", 0), 1);
  other->setProperty("a", "2");
  works = false;
  EXPECT_FALSE(other->store());
  EXPECT_EQ(takeUses(), "store medium ");
  takeLog();
  for (const auto& [file, error] :
       std::map<string, string>{{"else", ""},
                                {"throw", "CKrProperty::load: error, std::bad_alloc\n"},
                                {"throw 7", "CKrProperty::load: error, unknown exception\n"}}) {
    EXPECT_FALSE(other->load(file.c_str()));
    EXPECT_EQ(takeUses(), "store " + file + " load " + file + " ");
    EXPECT_EQ(takeLog(), error);
  }
  works = true;
  EXPECT_TRUE(other->store("else"));
  EXPECT_EQ(takeUses(), "store else ");
  EXPECT_TRUE(other->store());
  EXPECT_TRUE(other->load());
  EXPECT_EQ(takeUses(), "load medium ") << "nothing had changed";
  EXPECT_NE(CKrProperty::getInstance(string(255, 'n').c_str()), nullptr);
  takeLog();
  EXPECT_EQ(CKrProperty::getInstance(string(256, 'n').c_str()), nullptr);
  EXPECT_EQ(takeLog(), "CKrProperty::getInstance: error, file name of more than 255 characters\n");
}

TEST_F(Property, ThreadsShareAnInstance) {
  const auto work = [&](int i) {
    const string name = "n" + std::to_string(i);
    for (int n = 0; n < 500; ++n) {
      store->setProperty(name.c_str(), n);
      EXPECT_EQ(store->getProperty(name.c_str(), -1), n);
      EXPECT_TRUE(store->store());
      EXPECT_NE(CKrProperty::getInstance(std::to_string(n).c_str()), nullptr);
    }
  };
  std::thread one(work, 1);
  work(2);
  one.join();
  EXPECT_EQ(contents("properties.txt"), "n1=499\nn2=499\n");
}
