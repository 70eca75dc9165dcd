#include "system/time_zone_table.h"

#include <strings.h>

#include <cstdlib>
#include <cstring>
#include <iterator>

namespace psia {
namespace {

constexpr std::size_t kStep = 4;  // pairs by which the list grows

struct ZoneRow {
  const char* rule;
  const char* zone;
};

/// The order matters: a search takes the first key that begins with the client's text, so a rule without
/// daylight saving comes before those that continue it. Rows with the same text twice are selected by zone
/// name. "CST-0" is no zone file; current_posix_tz knows it.
constexpr ZoneRow kZones[] = {
    {"ACT5", "Brazil/Acre"},
    {"Africa/Cairo", "Africa/Cairo"},
    {"AFT-4:30", "Asia/Kabul"},
    {"AKST9AKDT,M3.2.0,M11.1.0", "US/Alaska"},
    {"ALMT-6", "Asia/Almaty"},
    {"America/Godthab", "America/Godthab"},
    {"America/Santiago", "America/Santiago"},
    {"AMT4", "Brazil/West"},
    {"AMT4AMST,M11.1.0/0,M2.5.0/0", "America/Campo_Grande"},
    {"AMT-4AMST,M3.5.0,M10.5.0/3", "Asia/Yerevan"},
    {"ANAT-12ANAST,M3.5.0,M10.5.0/3", "Asia/Anadyr"},
    {"Antarctica/Palmer", "Antarctica/Palmer"},
    {"AQTT-5", "Asia/Aqtau"},
    {"ART3", "America/Buenos_Aires"},
    {"Asia/Jerusalem", "Asia/Jerusalem"},
    {"Asia/Tel_Aviv", "Asia/Tel_Aviv"},
    {"AST-3", "Asia/Aden"},
    {"AST-3ADT,J91/3,J274/4", "Asia/Baghdad"},
    {"AST4", "America/Anguilla"},
    {"AST4ADT,M3.2.0,M11.1.0", "Canada/Atlantic"},
    {"AST4ADT,M3.2.0/0:01,M11.1.0/0:01", "America/Goose_Bay"},
    {"AZOT1AZOST,M3.5.0/0,M10.5.0/1", "Atlantic/Azores"},
    {"AZT-4AZST,M3.5.0/4,M10.5.0/5", "Asia/Baku"},
    {"BDT-6", "Asia/Dacca"},
    {"BNT-8", "Asia/Brunei"},
    {"BOT4", "America/La_Paz"},
    {"BRT3", "America/Araguaina"},
    {"BRT3BRST,M11.1.0/0,M2.5.0/0", "Brazil/East"},
    {"BTT-6", "Asia/Thimbu"},
    {"CAT-2", "Africa/Blantyre"},
    {"CCT-6:30", "Indian/Cocos"},
    {"CET-1", "Africa/Algiers"},
    {"CET-1CEST,M3.5.0,M10.5.0/3", "CET"},
    {"CHAST-12:45CHADT,M9.5.0/2:45,M4.1.0/3:45", "NZ-CHAT"},
    {"Chile/Continental", "Chile/Continental"},
    {"Chile/EasterIsland", "Chile/EasterIsland"},
    {"CHOT-9", "Asia/Choibalsan"},
    {"ChST-10", "Pacific/Guam"},
    {"CIT-8", "Asia/Makassar"},
    {"CKT10", "Pacific/Rarotonga"},
    {"COT5", "America/Bogota"},
    {"CST5CDT,M3.2.0/0,M11.1.0/1", "Cuba"},
    {"CST6", "Canada/Saskatchewan"},
    {"CST6CDT,M3.2.0,M11.1.0", "CST6CDT"},
    {"CST6CDT,M4.1.0,M10.5.0", "Mexico/General"},
    {"CST-8", "ROC"},
    {"CST-9:30", "Australia/Darwin"},
    {"CST-9:30CST,M10.1.0,M4.1.0/3", "Australia/South"},
    {"CST-0", "CST-0"},
    {"CVT1", "Atlantic/Cape_Verde"},
    {"CWST-8:45", "Australia/Eucla"},
    {"CXT-7", "Indian/Christmas"},
    {"DAVT-7", "Antarctica/Davis"},
    {"DDUT-10", "Antarctica/DumontDUrville"},
    {"EAT-3", "Indian/Antananarivo"},
    {"ECT5", "America/Guayaquil"},
    {"EET-2", "Libya"},
    {"EET-2EEST,J91/0,M10.3.5/0", "Asia/Gaza"},
    {"EET-2EEST,M3.5.0,M10.5.0/3", "Europe/Kaliningrad"},
    {"EET-2EEST,M3.5.0/0,M10.5.0/0", "Asia/Beirut"},
    {"EET-2EEST,M3.5.0/3,M10.5.0/4", "EET"},
    {"EET-2EEST,M3.5.4/0,M10.5.5/1", "Asia/Amman"},
    {"EET-2EEST,M3.5.5/0,J274/0", "Asia/Damascus"},
    {"EGT1EGST,M3.5.0/0,M10.5.0/1", "America/Scoresbysund"},
    {"Egypt", "Egypt"},
    {"EIT-9", "Asia/Jayapura"},
    {"EST-10", "Australia/Brisbane"},
    {"EST-10EST,M10.1.0,M4.1.0/3", "Australia/ACT"},
    {"EST5", "EST"},
    {"EST5EDT,M3.2.0,M11.1.0", "EST5EDT"},
    {"FJT-12", "Pacific/Fiji"},
    {"FKT4FKST,M9.1.0,M4.3.0", "Atlantic/Stanley"},
    {"FNT2", "Brazil/DeNoronha"},
    {"GALT6", "Pacific/Galapagos"},
    {"GAMT9", "Pacific/Gambier"},
    {"GET-4", "Asia/Tbilisi"},
    {"GFT3", "America/Cayenne"},
    {"GILT-12", "Pacific/Tarawa"},
    {"GMT0", "GMT"},
    {"GMT0BST,M3.5.0/1,M10.5.0", "GB"},
    {"GMT0IST,M3.5.0/1,M10.5.0", "Eire"},
    {"GST2", "Atlantic/South_Georgia"},
    {"GST-4", "Asia/Dubai"},
    {"GYT4", "America/Guyana"},
    {"HAST10HADT,M3.2.0,M11.1.0", "US/Aleutian"},
    {"HKT-8", "Hongkong"},
    {"HOVT-7", "Asia/Hovd"},
    {"HST10", "HST"},
    {"ICT-7", "Asia/Bangkok"},
    {"IOT-6", "Indian/Chagos"},
    {"IRKT-8IRKST,M3.5.0,M10.5.0/3", "Asia/Irkutsk"},
    {"IRST-3:30", "Iran"},
    {"Israel", "Israel"},
    {"IST-5:30", "Asia/Calcutta"},
    {"JST-9", "Japan"},
    {"KGT-6", "Asia/Bishkek"},
    {"KOST-11", "Pacific/Kosrae"},
    {"KRAT-7KRAST,M3.5.0,M10.5.0/3", "Asia/Krasnoyarsk"},
    {"KST-9", "ROK"},
    {"LHST-10:30LHST-11,M10.1.0,M4.1.0", "Australia/LHI"},
    {"LINT-14", "Pacific/Kiritimati"},
    {"MAGT-11MAGST,M3.5.0,M10.5.0/3", "Asia/Magadan"},
    {"MART9:30", "Pacific/Marquesas"},
    {"MAWT-6", "Antarctica/Mawson"},
    {"MET-1MEST,M3.5.0,M10.5.0/3", "MET"},
    {"MHT-12", "Kwajalein"},
    {"MMT-6:30", "Asia/Rangoon"},
    {"MSK-3MSD,M3.5.0,M10.5.0/3", "W-SU"},
    {"MST7", "MST"},
    {"MST7MDT,M3.2.0,M11.1.0", "MST7MDT"},
    {"MST7MDT,M4.1.0,M10.5.0", "Mexico/BajaSur"},
    {"MUT-4", "Indian/Mauritius"},
    {"MVT-5", "Indian/Maldives"},
    {"MYT-8", "Asia/Kuala_Lumpur"},
    {"NCT-11", "Pacific/Noumea"},
    {"NFT-11:30", "Pacific/Norfolk"},
    {"NOVT-6NOVST,M3.5.0,M10.5.0/3", "Asia/Novosibirsk"},
    {"NPT-5:45", "Asia/Katmandu"},
    {"NRT-12", "Pacific/Nauru"},
    {"NST3:30NDT,M3.2.0/0:01,M11.1.0/0:01", "Canada/Newfoundland"},
    {"NUT11", "Pacific/Niue"},
    {"NZST-12NZDT,M9.5.0,M4.1.0/3", "NZ"},
    {"OMST-6OMSST,M3.5.0,M10.5.0/3", "Asia/Omsk"},
    {"ORAT-5", "Asia/Oral"},
    {"Pacific/Easter", "Pacific/Easter"},
    {"PET5", "America/Lima"},
    {"PETT-12PETST,M3.5.0,M10.5.0/3", "Asia/Kamchatka"},
    {"PGT-10", "Pacific/Port_Moresby"},
    {"PHOT-13", "Pacific/Enderbury"},
    {"PHT-8", "Asia/Manila"},
    {"PKT-5", "Asia/Karachi"},
    {"PMST3PMDT,M3.2.0,M11.1.0", "America/Miquelon"},
    {"PONT-11", "Pacific/Ponape"},
    {"PST8", "Pacific/Pitcairn"},
    {"PST8PDT,M3.2.0,M11.1.0", "PST8PDT"},
    {"PST8PDT,M4.1.0,M10.5.0", "Mexico/BajaNorte"},
    {"PWT-9", "Pacific/Palau"},
    {"PYT4PYST,M10.3.0/0,M3.2.0/0", "America/Asuncion"},
    {"QYZT-6", "Asia/Qyzylorda"},
    {"RET-4", "Indian/Reunion"},
    {"ROTT3", "Antarctica/Rothera"},
    {"SAKT-10SAKST,M3.5.0,M10.5.0/3", "Asia/Sakhalin"},
    {"SAMT-4SAMST,M3.5.0,M10.5.0/3", "Europe/Samara"},
    {"SAST-2", "Africa/Johannesburg"},
    {"SBT-11", "Pacific/Guadalcanal"},
    {"SCT-4", "Indian/Mahe"},
    {"SGT-8", "Singapore"},
    {"SRT3", "America/Paramaribo"},
    {"SST11", "US/Samoa"},
    {"SYOT-3", "Antarctica/Syowa"},
    {"TAHT10", "Pacific/Tahiti"},
    {"TFT-5", "Indian/Kerguelen"},
    {"TJT-5", "Asia/Dushanbe"},
    {"TKT10", "Pacific/Fakaofo"},
    {"TLT-9", "Asia/Dili"},
    {"TMT-5", "Asia/Ashgabat"},
    {"TOT-13", "Pacific/Tongatapu"},
    {"TRUT-10", "Pacific/Truk"},
    {"TVT-12", "Pacific/Funafuti"},
    {"UCT0", "UCT"},
    {"ULAT-8", "Asia/Ulaanbaatar"},
    {"UTC0", "UTC"},
    {"UYT3UYST,M10.1.0,M3.2.0", "America/Montevideo"},
    {"UZT-5", "Asia/Samarkand"},
    {"VET4", "America/Caracas"},
    {"VLAT-10VLAST,M3.5.0,M10.5.0/3", "Asia/Vladivostok"},
    {"VOLT-3VOLST,M3.5.0,M10.5.0/3", "Europe/Volgograd"},
    {"VOST-6", "Antarctica/Vostok"},
    {"VUT-11", "Pacific/Efate"},
    {"WAKT-12", "Pacific/Wake"},
    {"WAT-1", "Africa/Bangui"},
    {"WAT-1WAST,M9.1.0,M4.1.0", "Africa/Windhoek"},
    {"WET0", "Africa/Casablanca"},
    {"WET0WEST,M3.5.0/1,M10.5.0", "WET"},
    {"WFT-12", "Pacific/Wallis"},
    {"WIT-7", "Asia/Jakarta"},
    {"WST11", "Pacific/Apia"},
    {"WST-8", "Australia/West"},
    {"YAKT-9YAKST,M3.5.0,M10.5.0/3", "Asia/Yakutsk"},
    {"YEKT-5YEKST,M3.5.0,M10.5.0/3", "Asia/Yekaterinburg"},
};
static_assert(std::size(kZones) == 180);

}  // namespace

tz_pair_list* tz_pair_list_create() {
  return static_cast<tz_pair_list*>(std::calloc(1, sizeof(tz_pair_list)));
}

int tz_pair_list_add(tz_pair_list& list, const char* key, const char* value) {
  if (list.count == list.capacity) {
    const std::size_t capacity = list.capacity + kStep;
    auto* const pairs = static_cast<tz_pair*>(std::realloc(list.pairs, capacity * sizeof(tz_pair)));
    if (pairs == nullptr) return -1;
    list.pairs = pairs;
    list.capacity = capacity;
  }
  const tz_pair added{strdup(key), strdup(value)};
  if (added.key == nullptr || added.value == nullptr) {
    std::free(added.key);
    std::free(added.value);
    return -1;
  }
  list.pairs[list.count++] = added;
  return 0;
}

void tz_pair_list_free(tz_pair_list* list) {
  if (list == nullptr) return;
  for (const tz_pair& pair : list->in_use()) {
    std::free(pair.key);
    std::free(pair.value);
  }
  std::free(list->pairs);
  std::free(list);
}

bool tz_table_fill(tz_pair_list& list) {
  for (const ZoneRow& row : kZones) {
    if (tz_pair_list_add(list, row.rule, row.zone) != 0) return false;
  }
  return true;
}

const char* tz_find_zone(const tz_pair_list& list, const char* text) {
  const std::size_t length = std::strlen(text);
  for (const tz_pair& pair : list.in_use()) {
    if (strncasecmp(pair.key, text, length) == 0) return pair.value;
  }
  return nullptr;
}

}  // namespace psia
