// The Lexary Server SOAP service ("nvsoap", version 2): wire types and the 34 operations.
//
// soapcpp2 turns this file into the client stubs, the server skeleton and the WSDL.
// Conventions used throughout:
//  - Element names and their order are the wire contract; never reorder members.
//  - A pointer member or parameter is an optional element: NULL means "absent".
//  - Arrays are wrapper types holding repeated <item> elements.
//  - Every request begins with licence, clientid, reqgroup, select (CreateSession has no
//    licence); every response begins with error and, in most operations, token.
//  - Polymorphic families (TranslationPart*, DicEntry*) are classes with inheritance, so
//    derived objects travel with xsi:type and arrays of base pointers deserialise to the
//    concrete class.
//
// Shapes the service leaves open, as chosen here:
//  - GetUserListResponse carries the users in one UserEntryArray element named "users".
//  - Not-found and error entries of the DicEntry family are DicEntryNotFound and
//    DicEntryError; the index of the requested word or entry is their "idx" member.
//  - EngineSelect is {eid, properties} with the properties as a KeyValArray.
//  - Engine/EngineFilter "type" and "support" masks are xsd:int; dictionary types xsd:long.
//  - SourceError "errcat" is the category name as text; the client prints "UNKNOWN" when
//    it is absent.
//  - TranslationPartEngine "altword" and SourceBlock "setword" are StringArrays.

//gsoap nv schema namespace: http://schemas.lexary.net/nvsoap/2/schema
//gsoap nv schema form: unqualified
//gsoap nv service name: nvsoap
//gsoap nv service type: nvsoapPortType
//gsoap nv service port: http://localhost:12000/nvsoap/nvsoap.cgi
//gsoap nv service style: document
//gsoap nv service encoding: literal

#import "stlvector.h"

typedef long long xsd__long;
typedef int xsd__int;
typedef unsigned int xsd__unsignedInt;
typedef bool xsd__boolean;
typedef double xsd__double;

/// Binary data; id/type/options let the same value travel as a DIME attachment.
class xsd__base64Binary {
 public:
  unsigned char* __ptr;
  int __size;
  char* id;
  char* type;
  char* options;
};

// ---- Shared types -------------------------------------------------------------------

class nv__KeyValPair {
 public:
  std::string key;
  std::string val;
};

class nv__KeyValArray {
 public:
  std::vector<nv__KeyValPair> item;
};

class nv__StringArray {
 public:
  std::vector<std::string> item;
};

/// One warning or error item.
class nv__Error {
 public:
  std::string key;
  std::string err;
};

class nv__ErrorArray {
 public:
  std::vector<nv__Error> item;
};

/// Detail of every fault the server raises.
class nv__NvsoapException {
 public:
  std::string err;
  std::string msg;
  nv__ErrorArray* error;
  std::string* token;
};

/// The trailing underscore keeps the member apart from its type; the element is
/// nv:NvsoapException.
struct SOAP_ENV__Detail {
  nv__NvsoapException* nv__NvsoapException_;
  int __type;
  void* fault;
  _XML __any;
};

class nv__DisplayText {
 public:
  std::string* lang;
  std::string* text;
};

class nv__DisplayTextArray {
 public:
  std::vector<nv__DisplayText> item;
};

/// The engine choice of translation requests.
class nv__EngineSelect {
 public:
  std::string* eid;
  nv__KeyValArray* properties;
};

// ---- Translation input and output ---------------------------------------------------

class nv__PatternText {
 public:
  std::string* text;
  std::string* phrase;
};

class nv__SourceBlock {
 public:
  std::string* lang;
  std::string* text;
  std::string* phrase;
  std::string* track;
  nv__PatternText* pattern;
  nv__StringArray* setword;
};

class nv__SourceBlockArray {
 public:
  std::vector<nv__SourceBlock> item;
};

class nv__InputData {
 public:
  xsd__base64Binary* data;
};

class nv__InputDataArray {
 public:
  std::vector<nv__InputData> item;
};

class nv__OutputFile {
 public:
  xsd__base64Binary* data;
  std::string* name;
  std::string* type;
};

class nv__OutputFileArray {
 public:
  std::vector<nv__OutputFile> item;
};

class nv__OutputData {
 public:
  xsd__base64Binary* data;
  std::string* encodingUsed;
  std::string* outputEncoding;
  std::string* type;
  nv__OutputFileArray* attachments;
};

class nv__OutputDataArray {
 public:
  std::vector<nv__OutputData> item;
};

// ---- Translation results ------------------------------------------------------------

class nv__TranslateEquiv {
 public:
  std::string* org;
  std::string* txn;
};

/// Base of the part family; the first character of "type" is the kind code.
class nv__TranslationPart {
 public:
  std::string* type;
  std::string* loc;
  std::string* lang;
  std::string* text;
  nv__TranslateEquiv* equiv;
};

class nv__TranslationPartEngine : public nv__TranslationPart {
 public:
  std::string* phrase;
  std::string* pos;
  std::string* dicinfo;
  nv__StringArray* altword;
  std::string* error;
};

class nv__TranslationPartMemory : public nv__TranslationPart {
 public:
  xsd__int* rate;
  std::string* entry;
  std::string* pattern;
  std::string* keyword;
  std::string* diff;
  std::string* error;
};

class nv__TranslationPartArray {
 public:
  std::vector<nv__TranslationPart*> item;
};

class nv__TranslationBlock {
 public:
  nv__TranslationPartArray* parts;
  std::string* track;
  std::string* error;
};

class nv__TranslationBlockArray {
 public:
  std::vector<nv__TranslationBlock> item;
};

class nv__UnknownWord {
 public:
  std::string* context;
  xsd__int start;
  xsd__int length;
};

class nv__UnknownWordArray {
 public:
  std::vector<nv__UnknownWord> item;
};

class nv__UrlRewrite {
 public:
  xsd__unsignedInt tags;
  std::string* urlTemplate;
};

class nv__UrlRewriteArray {
 public:
  std::vector<nv__UrlRewrite> item;
};

class nv__DocError {
 public:
  std::string* type;
  std::string* level;
  xsd__int line;
  xsd__int column;
  std::string* message;
};

class nv__DocErrorArray {
 public:
  std::vector<nv__DocError> item;
};

// ---- Text analysis ------------------------------------------------------------------

class nv__Word {
 public:
  std::string* word;
  std::string* base;
  std::string* loc;
  std::string* pos;
  std::string* did;
};

class nv__WordArray {
 public:
  std::vector<nv__Word> item;
};

class nv__Sentence {
 public:
  std::string* type;
  std::string* loc;
  std::string* org;
  nv__WordArray* words;
  std::string* error;
};

class nv__SentenceArray {
 public:
  std::vector<nv__Sentence> item;
};

class nv__TextBlock {
 public:
  nv__SentenceArray* parts;
  std::string* error;
};

class nv__TextBlockArray {
 public:
  std::vector<nv__TextBlock> item;
};

// ---- Engines, properties, profiles --------------------------------------------------

/// Date-time bounds as "YYYY-MM-DDThh:mm:ssZ"; absent or empty means unlimited.
class nv__Validity {
 public:
  std::string* from;
  std::string* to;
};

class nv__Limit {
 public:
  std::string* type;
  std::string* display;
  xsd__long* maximum;
  xsd__long* current;
};

class nv__LimitArray {
 public:
  std::vector<nv__Limit> item;
};

class nv__Property {
 public:
  std::string* key;
  std::string* val;
  xsd__boolean* readonly;
};

class nv__PropertyArray {
 public:
  std::vector<nv__Property> item;
};

class nv__Profile {
 public:
  std::string* profile;
  std::string* display;
  nv__PropertyArray* properties;
};

class nv__ProfileArray {
 public:
  std::vector<nv__Profile> item;
};

class nv__PropertyValue {
 public:
  std::string* value;
  std::string* display;
};

class nv__PropertyValues {
 public:
  std::vector<nv__PropertyValue> item;
};

class nv__PropertyDef {
 public:
  std::string* key;
  std::string* display;
  std::string* type;
  nv__PropertyValues* values;
};

class nv__PropertyList {
 public:
  std::vector<nv__PropertyDef> item;
};

class nv__PropertyUpdate {
 public:
  std::string* action;
  std::string* key;
  std::string* val;
  xsd__boolean* readonly;
  xsd__boolean* session;
};

class nv__PropertyUpdateArray {
 public:
  std::vector<nv__PropertyUpdate> item;
};

class nv__Format {
 public:
  xsd__long* api;
  std::string* format;
};

class nv__FormatArray {
 public:
  std::vector<nv__Format> item;
};

// ---- Dictionaries -------------------------------------------------------------------

class nv__Dictionary {
 public:
  xsd__long did;
  xsd__long* type;
  std::string* subject;
  std::string* ownerid;
  std::string* display;
  std::string* languages;
};

class nv__DictionaryArray {
 public:
  std::vector<nv__Dictionary> item;
};

class nv__DictionaryLimits {
 public:
  xsd__long* total;
  xsd__long* tech;
  xsd__long* user;
};

class nv__DictionaryInfo {
 public:
  nv__FormatArray* formats;
  nv__DictionaryLimits* limits;
  nv__DictionaryArray* list;
};

class nv__DicDetailsMemory {
 public:
  std::string* comment;
  std::string* vender;
  xsd__base64Binary* userdata;
};

class nv__DictionaryDetail {
 public:
  std::string* eid;
  xsd__long did;
  xsd__long* type;
  std::string* subject;
  std::string* ownerid;
  std::string* languages;
  nv__DisplayTextArray* alldisplay;
  nv__StringArray* share;
  xsd__long* headcount;
  xsd__long* totalcount;
  nv__DicDetailsMemory* details;
};

class nv__DictionaryData {
 public:
  std::string* filename;
  xsd__base64Binary* filedata;
};

class nv__DictionaryDataArray {
 public:
  std::vector<nv__DictionaryData> item;
};

class nv__Engine {
 public:
  std::string* eid;
  std::string* display;
  std::string* from;
  std::string* to;
  std::string* inter;
  std::string* eidLeft;
  std::string* eidRight;
  xsd__int* type;
  xsd__int* support;
  nv__Validity* validity;
  std::string* reverse;
  nv__DictionaryInfo* dictionaryInfo;
  nv__ProfileArray* profiles;
};

class nv__EngineArray {
 public:
  std::vector<nv__Engine> item;
};

class nv__EngineFilter {
 public:
  std::string* eid;
  std::string* from;
  std::string* to;
  xsd__int* type;
  xsd__int* support;
};

class nv__EngineUpdate {
 public:
  std::string* action;
  std::string* eid;
  xsd__int* type;
  xsd__int* support;
  nv__Validity* validity;
  xsd__long* maxTechDic;
  xsd__long* maxUserDic;
  std::string* addDicList;
  std::string* delDicList;
};

class nv__EngineUpdateArray {
 public:
  std::vector<nv__EngineUpdate> item;
};

// ---- Dictionary entries -------------------------------------------------------------

class nv__SourceError {
 public:
  xsd__long* errcode;
  std::string* errmsg;
  xsd__long* errline;
  xsd__long* srcline;
  std::string* source;
  std::string* keyword;
  std::string* errcat;
};

class nv__SourceErrorArray {
 public:
  std::vector<nv__SourceError> item;
};

class nv__EntryTextMemory {
 public:
  std::string* lang;
  std::string* text;
  xsd__boolean* isKey;
};

class nv__EntryTextMemoryArray {
 public:
  std::vector<nv__EntryTextMemory> item;
};

/// Abstract base of dictionary entries; only derived objects travel.
class nv__DicEntry {
 public:
};

class nv__DicEntryEngine : public nv__DicEntry {
 public:
  std::string* entryid;
  std::string* headword;
  std::string* source;
};

class nv__DicEntryMemory : public nv__DicEntry {
 public:
  std::string* entryid;
  nv__EntryTextMemoryArray* sentences;
  xsd__boolean* isPattern;
  xsd__int* weight;
  xsd__int* info;
  std::string* author;
  std::string* title;
  std::string* comment;
  std::string* date;
  xsd__base64Binary* userdata;
};

class nv__DicEntryLookup : public nv__DicEntry {
 public:
  xsd__int idx;
  std::string* did;
  std::string* orgWord;
  std::string* orgBase;
  std::string* orgPos;
  std::string* txnWord;
  std::string* txnPos;
};

class nv__DicEntryError : public nv__DicEntry {
 public:
  xsd__int idx;
  std::string* err;
  std::string* headword;
};

class nv__DicEntryNotFound : public nv__DicEntry {
 public:
  xsd__int idx;
  std::string* entryid;
  std::string* headword;
};

class nv__DicEntryArray {
 public:
  std::vector<nv__DicEntry*> item;
};

class nv__DicEntryId {
 public:
  std::string* entryid;
  std::string* headword;
};

class nv__DicEntryIdArray {
 public:
  std::vector<nv__DicEntryId> item;
};

class nv__AddEntryResult {
 public:
  nv__StringArray* entryid;
  std::string* error;
  nv__SourceErrorArray* sourceError;
};

class nv__AddEntryResultArray {
 public:
  std::vector<nv__AddEntryResult> item;
};

// ---- Users --------------------------------------------------------------------------

class nv__Session {
 public:
  std::string* type;
  std::string* created;
  std::string* lastused;
  std::string* ipaddress;
};

class nv__SessionArray {
 public:
  std::vector<nv__Session> item;
};

class nv__User {
 public:
  std::string* userid;
  std::string* username;
  xsd__long* apiAllowed;
  std::string* timezone;
  nv__Validity* validity;
  nv__LimitArray* limits;
  nv__StringArray* iprestrict;
  nv__EngineArray* engines;
  nv__PropertyArray* properties;
  nv__SessionArray* sessions;
  std::string* features;
};

class nv__UserArray {
 public:
  std::vector<nv__User> item;
};

/// Absent members are left unchanged by the server.
class nv__UserUpdate {
 public:
  std::string* userid;
  std::string* username;
  std::string* password;
  std::string* timezone;
  xsd__long* apiAllowed;
  nv__Validity* validity;
  nv__LimitArray* limits;
  nv__StringArray* iprestrict;
  nv__EngineUpdateArray* engines;
  nv__PropertyUpdateArray* properties;
  std::string* features;
};

class nv__UserEntry {
 public:
  std::string* userid;
  std::string* username;
};

class nv__UserEntryArray {
 public:
  std::vector<nv__UserEntry> item;
};

// ---- Responses ----------------------------------------------------------------------

struct nv__GetEngineInfoResponse {
  nv__ErrorArray* error;
  std::string* token;
  nv__EngineArray* engines;
  nv__PropertyList* propdef;
};

struct nv__UpdateEngineProfileResponse {
  nv__ErrorArray* error;
  std::string* token;
  nv__DisplayTextArray* alldisplay;
  nv__PropertyArray* properties;
};

struct nv__TestEchoResponse {
  nv__ErrorArray* error;
  std::string* token;
  std::string* str;
  xsd__long* num;
  xsd__base64Binary* bin;
};

struct nv__RecodeResponse {
  nv__ErrorArray* error;
  std::string* token;
  std::string* encodingUsed;
  xsd__base64Binary* text;
};

struct nv__TranslateTextSimpleResponse {
  nv__ErrorArray* error;
  std::string* token;
  std::string* text;
  std::string* track;
  std::string* sent;
  nv__TranslateEquiv* equiv;
};

struct nv__TranslateTextResponse {
  nv__ErrorArray* error;
  std::string* token;
  nv__TranslationBlockArray* blocks;
  nv__UnknownWordArray* unknown;
};

struct nv__TranslateTextUpdateResponse {
  nv__ErrorArray* error;
  std::string* token;
  nv__TranslationBlockArray* blocks;
  nv__UnknownWordArray* unknown;
};

struct nv__ParseTextResponse {
  nv__ErrorArray* error;
  std::string* token;
  nv__TextBlockArray* blocks;
};

struct nv__TranslateXmlResponse {
  nv__ErrorArray* error;
  std::string* token;
  nv__DocErrorArray* docError;
  xsd__base64Binary* txnDoc;
  nv__UnknownWordArray* unknown;
};

struct nv__TranslateHtmlResponse {
  nv__ErrorArray* error;
  std::string* token;
  std::string* encodingUsed;
  xsd__base64Binary* document;
  nv__UnknownWordArray* unknown;
  std::string* outputEncoding;
};

struct nv__TranslateResponse {
  nv__ErrorArray* error;
  std::string* token;
  std::string* encodingUsed;
  nv__OutputData* outdata;
  nv__UnknownWordArray* unknown;
  std::string* outputEncoding;
  std::string* outtype;
  nv__OutputFileArray* attachments;
};

struct nv__TranslateMultiResponse {
  nv__ErrorArray* error;
  std::string* token;
  nv__OutputDataArray* outdata;
  nv__UnknownWordArray* unknown;
};

struct nv__SplitSentencesResponse {
  nv__ErrorArray* error;
  std::string* token;
  nv__TranslationBlockArray* blocks;
};

struct nv__LookupEntryResponse {
  nv__ErrorArray* error;
  std::string* token;
  nv__DicEntryArray* entries;
};

struct nv__LookupFormattedResponse {
  nv__ErrorArray* error;
  std::string* token;
  std::string* definition;
};

struct nv__CreateDictionaryResponse {
  nv__ErrorArray* error;
  std::string* token;
  nv__DictionaryDetail* dic;
};

struct nv__UpdateDictionaryInfoResponse {
  nv__ErrorArray* error;
  std::string* token;
  nv__DictionaryDetail* dic;
};

struct nv__CopyDictionaryResponse {
  nv__ErrorArray* error;
  std::string* token;
  xsd__long* destDid;
};

struct nv__DeleteDictionaryResponse {
  nv__ErrorArray* error;
  std::string* token;
};

struct nv__ChangeDictionaryOwnerResponse {
  nv__ErrorArray* error;
  std::string* token;
  xsd__long* destDid;
};

struct nv__DictionaryImportResponse {
  nv__ErrorArray* error;
  std::string* token;
  std::string* encodingUsed;
  nv__SourceErrorArray* sourceError;
  xsd__boolean* updated;
  std::string* formatUsed;
};

struct nv__DictionaryExportResponse {
  nv__ErrorArray* error;
  std::string* token;
  nv__DictionaryDataArray* data;
};

struct nv__AddDictionaryEntryResponse {
  nv__ErrorArray* error;
  std::string* token;
  nv__AddEntryResultArray* entries;
};

struct nv__GetDictionaryEntryResponse {
  nv__ErrorArray* error;
  std::string* token;
  nv__DicEntryArray* entries;
};

struct nv__DeleteDictionaryEntryResponse {
  nv__ErrorArray* error;
  std::string* token;
};

struct nv__CreateUserResponse {
  nv__ErrorArray* error;
  std::string* token;
  nv__User* user;
  nv__PropertyList* propdef;
};

struct nv__GetUserResponse {
  nv__ErrorArray* error;
  std::string* token;
  nv__UserArray* users;
  nv__PropertyList* propdef;
};

struct nv__UpdateUserResponse {
  nv__ErrorArray* error;
  std::string* token;
  nv__User* user;
  nv__PropertyList* propdef;
};

struct nv__DeleteUserResponse {
  nv__ErrorArray* error;
  std::string* token;
};

struct nv__GetUserListResponse {
  nv__ErrorArray* error;
  std::string* token;
  nv__UserEntryArray* users;
};

struct nv__ChangePasswordResponse {
  nv__ErrorArray* error;
  std::string* token;
};

struct nv__CreateSessionResponse {
  nv__ErrorArray* error;
  std::string* session;
  std::string* token;
  xsd__long* expireSecs;
  xsd__long* lifetimeHours;
};

struct nv__EndSessionResponse {
  nv__ErrorArray* error;
};

struct nv__DetectLanguageResponse {
  nv__ErrorArray* error;
  std::string* language;
  xsd__boolean* isReliable;
  xsd__double* confidence;
  std::string* encodingUsed;
};

// ---- Operations (catalogue order) ---------------------------------------------------

//gsoap nv service method-action: GetEngineInfo ""
//gsoap nv service method-fault: GetEngineInfo nv__NvsoapException_
int nv__GetEngineInfo(std::string* licence, std::string* clientid, std::string* reqgroup,
                      std::string* select, std::string* displayLang, nv__EngineFilter* filter,
                      struct nv__GetEngineInfoResponse& response);

//gsoap nv service method-action: UpdateEngineProfile ""
//gsoap nv service method-fault: UpdateEngineProfile nv__NvsoapException_
int nv__UpdateEngineProfile(std::string* licence, std::string* clientid, std::string* reqgroup,
                            std::string* select, std::string* eid, std::string* profile,
                            nv__DisplayTextArray* alldisplay, nv__KeyValArray* addProp,
                            nv__StringArray* delProp,
                            struct nv__UpdateEngineProfileResponse& response);

//gsoap nv service method-action: TestEcho ""
//gsoap nv service method-fault: TestEcho nv__NvsoapException_
int nv__TestEcho(std::string* licence, std::string* clientid, std::string* reqgroup,
                 std::string* select, std::string* str, xsd__long* num, xsd__base64Binary* bin,
                 struct nv__TestEchoResponse& response);

//gsoap nv service method-action: Recode ""
//gsoap nv service method-fault: Recode nv__NvsoapException_
int nv__Recode(std::string* licence, std::string* clientid, std::string* reqgroup,
               std::string* select, std::string* fromLang, std::string* fromEncoding,
               std::string* toEncoding, xsd__base64Binary* text,
               struct nv__RecodeResponse& response);

//gsoap nv service method-action: TranslateTextSimple ""
//gsoap nv service method-fault: TranslateTextSimple nv__NvsoapException_
int nv__TranslateTextSimple(std::string* licence, std::string* clientid, std::string* reqgroup,
                            std::string* select, nv__EngineSelect* engine, std::string* text,
                            std::string* track,
                            struct nv__TranslateTextSimpleResponse& response);

//gsoap nv service method-action: TranslateText ""
//gsoap nv service method-fault: TranslateText nv__NvsoapException_
int nv__TranslateText(std::string* licence, std::string* clientid, std::string* reqgroup,
                      std::string* select, nv__EngineSelect* engine,
                      nv__SourceBlockArray* blocks, struct nv__TranslateTextResponse& response);

//gsoap nv service method-action: TranslateTextUpdate ""
//gsoap nv service method-fault: TranslateTextUpdate nv__NvsoapException_
int nv__TranslateTextUpdate(std::string* licence, std::string* clientid, std::string* reqgroup,
                            std::string* select, nv__EngineSelect* engine,
                            nv__SourceBlockArray* blocks,
                            struct nv__TranslateTextUpdateResponse& response);

//gsoap nv service method-action: ParseText ""
//gsoap nv service method-fault: ParseText nv__NvsoapException_
int nv__ParseText(std::string* licence, std::string* clientid, std::string* reqgroup,
                  std::string* select, nv__EngineSelect* engine, nv__SourceBlockArray* blocks,
                  struct nv__ParseTextResponse& response);

//gsoap nv service method-action: TranslateXml ""
//gsoap nv service method-fault: TranslateXml nv__NvsoapException_
int nv__TranslateXml(std::string* licence, std::string* clientid, std::string* reqgroup,
                     std::string* select, nv__EngineSelect* engine, xsd__base64Binary* orgXml,
                     xsd__base64Binary* orgXslt, struct nv__TranslateXmlResponse& response);

//gsoap nv service method-action: TranslateHtml ""
//gsoap nv service method-fault: TranslateHtml nv__NvsoapException_
int nv__TranslateHtml(std::string* licence, std::string* clientid, std::string* reqgroup,
                      std::string* select, nv__EngineSelect* engine, std::string* style,
                      std::string* pageBaseUrl, std::string* encoding, std::string* targetName,
                      nv__UrlRewriteArray* rewriteUrls, xsd__base64Binary* document,
                      struct nv__TranslateHtmlResponse& response);

//gsoap nv service method-action: Translate ""
//gsoap nv service method-fault: Translate nv__NvsoapException_
int nv__Translate(std::string* licence, std::string* clientid, std::string* reqgroup,
                  std::string* select, nv__EngineSelect* engine, std::string* rules,
                  nv__InputData* indata, struct nv__TranslateResponse& response);

//gsoap nv service method-action: TranslateMulti ""
//gsoap nv service method-fault: TranslateMulti nv__NvsoapException_
int nv__TranslateMulti(std::string* licence, std::string* clientid, std::string* reqgroup,
                       std::string* select, nv__EngineSelect* engine, std::string* rules,
                       nv__InputDataArray* indata, struct nv__TranslateMultiResponse& response);

//gsoap nv service method-action: SplitSentences ""
//gsoap nv service method-fault: SplitSentences nv__NvsoapException_
int nv__SplitSentences(std::string* licence, std::string* clientid, std::string* reqgroup,
                       std::string* select, nv__SourceBlockArray* blocks,
                       struct nv__SplitSentencesResponse& response);

//gsoap nv service method-action: LookupEntry ""
//gsoap nv service method-fault: LookupEntry nv__NvsoapException_
int nv__LookupEntry(std::string* licence, std::string* clientid, std::string* reqgroup,
                    std::string* select, nv__EngineSelect* engine, nv__StringArray* words,
                    struct nv__LookupEntryResponse& response);

//gsoap nv service method-action: LookupFormatted ""
//gsoap nv service method-fault: LookupFormatted nv__NvsoapException_
int nv__LookupFormatted(std::string* licence, std::string* clientid, std::string* reqgroup,
                        std::string* select, std::string* displayLang, nv__EngineSelect* engine,
                        std::string* word, struct nv__LookupFormattedResponse& response);

//gsoap nv service method-action: CreateDictionary ""
//gsoap nv service method-fault: CreateDictionary nv__NvsoapException_
int nv__CreateDictionary(std::string* licence, std::string* clientid, std::string* reqgroup,
                         std::string* select, std::string* eid, xsd__long* type,
                         std::string* languages, std::string* subject,
                         nv__DisplayTextArray* alldisplay, nv__DicDetailsMemory* details,
                         struct nv__CreateDictionaryResponse& response);

//gsoap nv service method-action: UpdateDictionaryInfo ""
//gsoap nv service method-fault: UpdateDictionaryInfo nv__NvsoapException_
int nv__UpdateDictionaryInfo(std::string* licence, std::string* clientid, std::string* reqgroup,
                             std::string* select, xsd__long did, std::string* subject,
                             nv__DisplayTextArray* alldisplay, nv__StringArray* addShare,
                             nv__StringArray* delShare, nv__DicDetailsMemory* details,
                             struct nv__UpdateDictionaryInfoResponse& response);

//gsoap nv service method-action: CopyDictionary ""
//gsoap nv service method-fault: CopyDictionary nv__NvsoapException_
int nv__CopyDictionary(std::string* licence, std::string* clientid, std::string* reqgroup,
                       std::string* select, xsd__long sourceDid, xsd__long* targetDid,
                       xsd__long* targetType, struct nv__CopyDictionaryResponse& response);

//gsoap nv service method-action: DeleteDictionary ""
//gsoap nv service method-fault: DeleteDictionary nv__NvsoapException_
int nv__DeleteDictionary(std::string* licence, std::string* clientid, std::string* reqgroup,
                         std::string* select, xsd__long did,
                         struct nv__DeleteDictionaryResponse& response);

//gsoap nv service method-action: ChangeDictionaryOwner ""
//gsoap nv service method-fault: ChangeDictionaryOwner nv__NvsoapException_
int nv__ChangeDictionaryOwner(std::string* licence, std::string* clientid, std::string* reqgroup,
                              std::string* select, xsd__long did, std::string* targetUser,
                              struct nv__ChangeDictionaryOwnerResponse& response);

//gsoap nv service method-action: DictionaryImport ""
//gsoap nv service method-fault: DictionaryImport nv__NvsoapException_
int nv__DictionaryImport(std::string* licence, std::string* clientid, std::string* reqgroup,
                         std::string* select, xsd__long did, std::string* format,
                         std::string* encoding, nv__DictionaryDataArray* data,
                         struct nv__DictionaryImportResponse& response);

//gsoap nv service method-action: DictionaryExport ""
//gsoap nv service method-fault: DictionaryExport nv__NvsoapException_
int nv__DictionaryExport(std::string* licence, std::string* clientid, std::string* reqgroup,
                         std::string* select, xsd__long did, std::string* format,
                         std::string* encoding, struct nv__DictionaryExportResponse& response);

//gsoap nv service method-action: AddDictionaryEntry ""
//gsoap nv service method-fault: AddDictionaryEntry nv__NvsoapException_
int nv__AddDictionaryEntry(std::string* licence, std::string* clientid, std::string* reqgroup,
                           std::string* select, xsd__long did, std::string* format,
                           nv__DicEntryArray* entries,
                           struct nv__AddDictionaryEntryResponse& response);

//gsoap nv service method-action: GetDictionaryEntry ""
//gsoap nv service method-fault: GetDictionaryEntry nv__NvsoapException_
int nv__GetDictionaryEntry(std::string* licence, std::string* clientid, std::string* reqgroup,
                           std::string* select, xsd__long did, std::string* format,
                           xsd__long* rangeStart, xsd__long* rangeCount,
                           nv__DicEntryIdArray* entryid,
                           struct nv__GetDictionaryEntryResponse& response);

//gsoap nv service method-action: DeleteDictionaryEntry ""
//gsoap nv service method-fault: DeleteDictionaryEntry nv__NvsoapException_
int nv__DeleteDictionaryEntry(std::string* licence, std::string* clientid, std::string* reqgroup,
                              std::string* select, xsd__long did, nv__DicEntryIdArray* entries,
                              struct nv__DeleteDictionaryEntryResponse& response);

//gsoap nv service method-action: CreateUser ""
//gsoap nv service method-fault: CreateUser nv__NvsoapException_
int nv__CreateUser(std::string* licence, std::string* clientid, std::string* reqgroup,
                   std::string* select, std::string* displayLang, nv__UserUpdate* user,
                   std::string* templateUserId, struct nv__CreateUserResponse& response);

//gsoap nv service method-action: GetUser ""
//gsoap nv service method-fault: GetUser nv__NvsoapException_
int nv__GetUser(std::string* licence, std::string* clientid, std::string* reqgroup,
                std::string* select, std::string* displayLang, nv__EngineFilter* filter,
                nv__StringArray* userid, struct nv__GetUserResponse& response);

//gsoap nv service method-action: UpdateUser ""
//gsoap nv service method-fault: UpdateUser nv__NvsoapException_
int nv__UpdateUser(std::string* licence, std::string* clientid, std::string* reqgroup,
                   std::string* select, std::string* displayLang, nv__UserUpdate* user,
                   struct nv__UpdateUserResponse& response);

//gsoap nv service method-action: DeleteUser ""
//gsoap nv service method-fault: DeleteUser nv__NvsoapException_
int nv__DeleteUser(std::string* licence, std::string* clientid, std::string* reqgroup,
                   std::string* select, nv__StringArray* userid,
                   struct nv__DeleteUserResponse& response);

//gsoap nv service method-action: GetUserList ""
//gsoap nv service method-fault: GetUserList nv__NvsoapException_
int nv__GetUserList(std::string* licence, std::string* clientid, std::string* reqgroup,
                    std::string* select, std::string* userid,
                    struct nv__GetUserListResponse& response);

//gsoap nv service method-action: ChangePassword ""
//gsoap nv service method-fault: ChangePassword nv__NvsoapException_
int nv__ChangePassword(std::string* licence, std::string* clientid, std::string* reqgroup,
                       std::string* select, std::string* password,
                       struct nv__ChangePasswordResponse& response);

//gsoap nv service method-action: CreateSession ""
//gsoap nv service method-fault: CreateSession nv__NvsoapException_
int nv__CreateSession(std::string* clientid, std::string* reqgroup, std::string* select,
                      std::string* type, struct nv__CreateSessionResponse& response);

//gsoap nv service method-action: EndSession ""
//gsoap nv service method-fault: EndSession nv__NvsoapException_
int nv__EndSession(std::string* licence, std::string* clientid, std::string* reqgroup,
                   std::string* select, struct nv__EndSessionResponse& response);

//gsoap nv service method-action: DetectLanguage ""
//gsoap nv service method-fault: DetectLanguage nv__NvsoapException_
int nv__DetectLanguage(std::string* licence, std::string* clientid, std::string* reqgroup,
                       std::string* select, std::string* domain, std::string* encodingHint,
                       std::string* languageHint, std::string* fromEncoding,
                       xsd__base64Binary* text, struct nv__DetectLanguageResponse& response);
