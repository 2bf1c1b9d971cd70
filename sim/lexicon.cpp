#include "lexicon.h"

#include <map>
#include <tuple>

#include "text_utf8.h"

namespace lexsim::lex {

namespace {

// One concept per row; rows earlier in the table win when a word has several senses, so
// the later rows are the alternative words. An empty cell has no word in that language.
struct Row {
  const char* pos;
  const char* en;
  const char* ja;
  const char* de;
  const char* fr;
  const char* ko;
};

const Row kRows[] = {
    {"INTJ", "hello", "こんにちは", "hallo", "bonjour", "안녕하세요"},
    {"INTJ", "good morning", "おはよう", "guten Morgen", "bonjour", "좋은 아침"},
    {"INTJ", "thank you", "ありがとう", "danke", "merci", "감사합니다"},
    {"INTJ", "goodbye", "さようなら", "auf Wiedersehen", "au revoir", "안녕히 가세요"},
    {"INTJ", "yes", "はい", "ja", "oui", "네"},
    {"INTJ", "no", "いいえ", "nein", "non", "아니요"},
    {"INTJ", "please", "どうぞ", "bitte", "s'il vous plaît", "제발"},
    {"NOUN", "world", "世界", "Welt", "monde", "세계"},
    {"NOUN", "cat", "猫", "Katze", "chat", "고양이"},
    {"NOUN", "dog", "犬", "Hund", "chien", "개"},
    {"NOUN", "book", "本", "Buch", "livre", "책"},
    {"NOUN", "water", "水", "Wasser", "eau", "물"},
    {"NOUN", "house", "家", "Haus", "maison", "집"},
    {"NOUN", "school", "学校", "Schule", "école", "학교"},
    {"NOUN", "teacher", "先生", "Lehrer", "professeur", "선생님"},
    {"NOUN", "student", "学生", "Student", "étudiant", "학생"},
    {"NOUN", "friend", "友達", "Freund", "ami", "친구"},
    {"NOUN", "day", "日", "Tag", "jour", "날"},
    {"NOUN", "time", "時間", "Zeit", "temps", "시간"},
    {"NOUN", "city", "町", "Stadt", "ville", "도시"},
    {"NOUN", "car", "車", "Auto", "voiture", "자동차"},
    {"NOUN", "tree", "木", "Baum", "arbre", "나무"},
    {"NOUN", "language", "言語", "Sprache", "langue", "언어"},
    {"NOUN", "dictionary", "辞書", "Wörterbuch", "dictionnaire", "사전"},
    {"NOUN", "server", "サーバー", "Server", "serveur", "서버"},
    {"NOUN", "translation", "翻訳", "Übersetzung", "traduction", "번역"},
    {"NOUN", "computer", "コンピューター", "Computer", "ordinateur", "컴퓨터"},
    {"NOUN", "document", "文書", "Dokument", "document", "문서"},
    {"NOUN", "station", "駅", "Bahnhof", "gare", "역"},
    {"NOUN", "morning", "朝", "Morgen", "matin", "아침"},
    {"NOUN", "tea", "お茶", "Tee", "thé", "차"},
    {"NOUN", "Japan", "日本", "Japan", "Japon", "일본"},
    {"NOUN", "English", "英語", "Englisch", "anglais", "영어"},
    {"NOUN", "name", "名前", "Name", "nom", "이름"},
    {"NOUN", "bank", "銀行", "Bank", "banque", "은행"},
    {"NOUN", "bank", "土手", "Ufer", "rive", "둑"},
    {"NOUN", "light", "光", "Licht", "lumière", "빛"},
    {"ADJ", "light", "軽い", "leicht", "léger", "가벼운"},
    {"PRON", "I", "私", "ich", "je", "나"},
    {"PRON", "you", "あなた", "du", "tu", "당신"},
    {"PRON", "you", "君", "Sie", "vous", "너"},
    {"PRON", "he", "彼", "er", "il", "그"},
    {"PRON", "she", "彼女", "sie", "elle", "그녀"},
    {"PRON", "we", "私たち", "wir", "nous", "우리"},
    {"PRON", "it", "それ", "es", "cela", "그것"},
    {"PRON", "this", "これ", "dies", "ceci", "이것"},
    {"VERB", "is", "です", "ist", "est", "입니다"},
    {"VERB", "are", "です", "sind", "sont", "입니다"},
    {"VERB", "am", "です", "bin", "suis", "입니다"},
    {"VERB", "be", "です", "sein", "être", "이다"},
    {"VERB", "have", "持つ", "haben", "avoir", "가지다"},
    {"VERB", "go", "行く", "gehen", "aller", "가다"},
    {"VERB", "come", "来る", "kommen", "venir", "오다"},
    {"VERB", "see", "見る", "sehen", "voir", "보다"},
    {"VERB", "eat", "食べる", "essen", "manger", "먹다"},
    {"VERB", "drink", "飲む", "trinken", "boire", "마시다"},
    {"VERB", "read", "読む", "lesen", "lire", "읽다"},
    {"VERB", "write", "書く", "schreiben", "écrire", "쓰다"},
    {"VERB", "speak", "話す", "sprechen", "parler", "말하다"},
    {"VERB", "like", "好き", "mögen", "aimer", "좋아하다"},
    {"VERB", "translate", "翻訳する", "übersetzen", "traduire", "번역하다"},
    {"VERB", "run", "走る", "laufen", "courir", "달리다"},
    {"VERB", "run", "動く", "funktionieren", "fonctionner", "작동하다"},
    {"ADJ", "good", "良い", "gut", "bon", "좋은"},
    {"ADJ", "big", "大きい", "groß", "grand", "큰"},
    {"ADJ", "small", "小さい", "klein", "petit", "작은"},
    {"ADJ", "new", "新しい", "neu", "nouveau", "새로운"},
    {"ADJ", "old", "古い", "alt", "vieux", "오래된"},
    {"ADJ", "beautiful", "美しい", "schön", "beau", "아름다운"},
    {"ADJ", "red", "赤い", "rot", "rouge", "빨간"},
    {"ADV", "very", "とても", "sehr", "très", "매우"},
    {"ADV", "today", "今日", "heute", "aujourd'hui", "오늘"},
    {"ADV", "now", "今", "jetzt", "maintenant", "지금"},
    {"ADV", "where", "どこ", "wo", "où", "어디"},
    {"DET", "the", "", "der", "le", ""},
    {"DET", "a", "", "ein", "un", ""},
    {"DET", "an", "", "ein", "un", ""},
    {"CONJ", "and", "と", "und", "et", "그리고"},
    {"CONJ", "but", "しかし", "aber", "mais", "하지만"},
    {"PREP", "in", "に", "in", "dans", "에"},
    {"PREP", "of", "の", "von", "de", "의"},
    {"PREP", "with", "と一緒に", "mit", "avec", "와 함께"},
    {"PREP", "to", "へ", "zu", "à", "에게"},
    {"PART", "", "は", "", "", ""},
    {"PART", "", "が", "", "", ""},
    {"PART", "", "を", "", "", ""},
    {"PART", "", "か", "", "", ""},
};

constexpr const char* kLangs[] = {"en", "ja", "de", "fr", "ko"};

const char* Cell(const Row& r, size_t lang) {
  switch (lang) {
    case 0: return r.en;
    case 1: return r.ja;
    case 2: return r.de;
    case 3: return r.fr;
    default: return r.ko;
  }
}

std::string Fold(std::string_view s) { return text::Encode(text::Lower(text::Decode(s))); }

struct Index {
  // (from, to, folded word) -> senses in table order
  std::map<std::tuple<std::string, std::string, std::string>, std::vector<Sense>> senses;
  // (lang, folded word) -> POS of its first row
  std::map<std::pair<std::string, std::string>, std::string> pos;
  // longest word of each language, in code points
  std::map<std::string, size_t> longest;
};

const Index& TheIndex() {
  static const Index index = [] {
    Index ix;
    for (const Row& r : kRows) {
      for (size_t f = 0; f < std::size(kLangs); ++f) {
        std::string src = Cell(r, f);
        if (src.empty()) continue;
        std::string key = Fold(src);
        ix.pos.emplace(std::make_pair(kLangs[f], key), r.pos);
        size_t& lg = ix.longest[kLangs[f]];
        lg = std::max(lg, text::Decode(src).size());
        for (size_t t = 0; t < std::size(kLangs); ++t) {
          if (t == f) continue;
          auto& list = ix.senses[{kLangs[f], kLangs[t], key}];
          Sense s{Cell(r, t), r.pos};
          bool dup = false;
          for (const Sense& o : list) dup = dup || o.target == s.target;
          if (!dup) list.push_back(std::move(s));
        }
      }
    }
    return ix;
  }();
  return index;
}

// Inflected forms the suffix rules cannot reach.
const std::map<std::pair<std::string, std::string>, std::string>& Irregular() {
  static const std::map<std::pair<std::string, std::string>, std::string> m = {
      {{"en", "went"}, "go"},     {{"en", "gone"}, "go"},      {{"en", "was"}, "be"},
      {{"en", "were"}, "be"},     {{"en", "been"}, "be"},      {{"en", "has"}, "have"},
      {{"en", "had"}, "have"},    {{"en", "came"}, "come"},    {{"en", "saw"}, "see"},
      {{"en", "seen"}, "see"},    {{"en", "ate"}, "eat"},      {{"en", "eaten"}, "eat"},
      {{"en", "drank"}, "drink"}, {{"en", "wrote"}, "write"},  {{"en", "written"}, "write"},
      {{"en", "spoke"}, "speak"}, {{"en", "ran"}, "run"},      {{"en", "better"}, "good"},
      {{"en", "best"}, "good"},   {{"en", "children"}, "child"}, {{"en", "bigger"}, "big"},
      {{"de", "bin"}, "sein"},    {{"de", "ist"}, "sein"},     {{"de", "sind"}, "sein"},
      {{"de", "hat"}, "haben"},   {{"de", "habe"}, "haben"},   {{"fr", "suis"}, "être"},
      {{"fr", "est"}, "être"},    {{"fr", "sont"}, "être"},    {{"fr", "ai"}, "avoir"},
      {{"fr", "a"}, "avoir"},
  };
  return m;
}

bool KnownWord(std::string_view lang, const std::string& folded) {
  return TheIndex().pos.count({std::string(lang), folded}) > 0;
}

bool EndsWith(const std::string& s, std::string_view suffix) {
  return s.size() > suffix.size() && s.compare(s.size() - suffix.size(), suffix.size(), suffix) == 0;
}

}  // namespace

const std::vector<std::string>& Languages() {
  static const std::vector<std::string> v(std::begin(kLangs), std::end(kLangs));
  return v;
}

bool Knows(std::string_view lang) {
  for (const char* l : kLangs)
    if (lang == l) return true;
  return false;
}

std::vector<Sense> Lookup(std::string_view from, std::string_view to, std::string_view word) {
  const Index& ix = TheIndex();
  auto it = ix.senses.find({std::string(from), std::string(to), Fold(word)});
  return it == ix.senses.end() ? std::vector<Sense>{} : it->second;
}

std::string BaseForm(std::string_view lang, std::string_view word) {
  std::string w = Fold(word);
  if (KnownWord(lang, w)) return w;
  auto irr = Irregular().find({std::string(lang), w});
  if (irr != Irregular().end()) return irr->second;
  if (lang != "en") return w;
  // Suffix rules, tried in order; the first that yields a known word wins.
  struct Rule {
    const char* suffix;
    const char* repl;
  };
  static const Rule kRules[] = {{"ies", "y"}, {"es", ""},   {"s", ""},   {"ing", ""},
                                {"ing", "e"}, {"ed", ""},   {"ed", "e"}, {"ied", "y"},
                                {"er", ""},   {"est", ""}};
  for (const Rule& r : kRules) {
    if (!EndsWith(w, r.suffix)) continue;
    std::string stem = w.substr(0, w.size() - std::char_traits<char>::length(r.suffix)) + r.repl;
    if (KnownWord(lang, stem)) return stem;
    // running -> runn -> run
    if (stem.size() >= 2 && stem[stem.size() - 1] == stem[stem.size() - 2] &&
        KnownWord(lang, stem.substr(0, stem.size() - 1)))
      return stem.substr(0, stem.size() - 1);
  }
  return w;
}

std::string PosOf(std::string_view lang, std::string_view word) {
  const Index& ix = TheIndex();
  auto it = ix.pos.find({std::string(lang), Fold(word)});
  if (it != ix.pos.end()) return it->second;
  it = ix.pos.find({std::string(lang), BaseForm(lang, word)});
  if (it != ix.pos.end()) return it->second;
  return "UNKN";
}

std::string RawPos(std::string_view pos) {
  static const std::map<std::string, std::string, std::less<>> m = {
      {"NOUN", "n"}, {"VERB", "v"},    {"ADJ", "a"},   {"ADV", "adv"},  {"PRON", "pn"},
      {"DET", "det"}, {"PREP", "p"},   {"CONJ", "c"},  {"PART", "prt"}, {"INTJ", "i"},
      {"NUM", "num"}, {"PUNC", "punc"}, {"UNKN", "x"}};
  auto it = m.find(pos);
  return it == m.end() ? "x" : it->second;
}

size_t LongestWordAt(std::string_view lang, std::u32string_view s, size_t pos) {
  const Index& ix = TheIndex();
  auto lg = ix.longest.find(std::string(lang));
  if (lg == ix.longest.end()) return 0;
  for (size_t n = std::min(lg->second, s.size() - pos); n > 0; --n)
    if (KnownWord(lang, Fold(text::Encode(s.substr(pos, n))))) return n;
  return 0;
}

bool Unspaced(std::string_view lang) { return lang == "ja" || lang == "zh"; }

const std::vector<MemoryPair>& SystemMemory() {
  static const std::vector<MemoryPair> v = {
      {1, "How are you?", "お元気ですか？"},
      {2, "Thank you very much.", "どうもありがとうございます。"},
      {3, "Where is the station?", "駅はどこですか？"},
      {4, "The server is running.", "サーバーは稼働中です。"},
      {5, "Please translate this document.", "この文書を翻訳してください。"},
      {6, "See you tomorrow.", "また明日。"},
  };
  return v;
}

const std::string& MemorySide(const MemoryPair& p, std::string_view lang) {
  static const std::string kNone;
  if (lang == "en") return p.en;
  if (lang == "ja") return p.ja;
  return kNone;
}

const std::vector<std::string>& FunctionWords(std::string_view lang) {
  static const std::map<std::string, std::vector<std::string>, std::less<>> m = {
      {"en", {"the", "a", "an", "and", "is", "are", "of", "to", "in", "it", "you", "i",
              "this", "that", "with", "for", "was", "on", "be", "have", "not", "how", "where"}},
      {"de", {"der", "die", "das", "und", "ist", "ich", "nicht", "ein", "eine", "zu", "mit",
              "sie", "es", "den", "von", "wir", "sind", "auf", "für"}},
      {"fr", {"le", "la", "les", "et", "est", "je", "ne", "pas", "un", "une", "de", "des",
              "du", "avec", "nous", "vous", "il", "elle", "pour", "sur", "dans"}},
      {"es", {"el", "la", "los", "las", "y", "es", "yo", "no", "un", "una", "de", "con",
              "por", "para", "que", "en", "del", "está"}},
      {"it", {"il", "lo", "la", "gli", "e", "è", "io", "non", "un", "una", "di", "con",
              "per", "che", "sono", "della"}},
      {"nl", {"de", "het", "een", "en", "is", "ik", "niet", "van", "met", "voor", "zijn",
              "op", "dat", "wij"}},
  };
  static const std::vector<std::string> kNone;
  auto it = m.find(lang);
  return it == m.end() ? kNone : it->second;
}

}  // namespace lexsim::lex
