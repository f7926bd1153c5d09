// The 231 countries and territories, sorted by name (index 0 to 230).
// Transcribed once from the collected reference data credited in the README; maintained by hand.
// Capitals on a sea shore carry altitude 0.
#include <qvgeo/geobasics/countries.h>

namespace qv {

// Name, Fips10, ISO3166_2, ISO3166_3, CLat, CLong, Capital, CapLat, CapLong, CapAlt (m)
const std::array<TCountryData, NumCountries> CountryData = {{
    {"Afghanistan", "af", "af", "afg", 33.0, 65.0, "Kabul", 34.5309, 69.1368, 1807},  // 0
    {"Albania", "al", "al", "alb", 41.0, 20.0, "Tirana", 41.3275, 19.8189, 113},  // 1
    {"Algeria", "ag", "dz", "dza", 28.0, 3.0, "Algiers", 36.7658, 3.0319, 0},  // 2
    {"American Samoa", "aq", "as", "asm", -14.3333, -170.0, "Pago Pago", -14.2781, -170.7025, 0},  // 3
    {"Andorra", "an", "ad", "and", 42.5, 1.5, "Andorra la Vella", 42.5078, 1.5211, 1037},  // 4
    {"Angola", "ao", "ao", "ago", -12.5, 18.5, "Luanda", -8.8368, 13.2343, 0},  // 5
    {"Anguilla", "av", "ai", "aia", 18.25, -63.1667, "The Valley", 18.217, -63.0578, 7},  // 6
    {"Antarctica", "ay", "aq", "ata", -90.0, 0.0, "", -90.0, 0.0, 0},  // 7
    {"Antigua and Barbuda", "ac", "ag", "atg", 17.05, -61.8, "Saint John's", 17.1167, -61.85, 0},  // 8
    {"Argentina", "ar", "ar", "arg", -34.0, -64.0, "Buenos Aires", -34.6131, -58.3772, 0},  // 9
    {"Armenia", "am", "am", "arm", 40.0, 45.0, "Yerevan", 40.1811, 44.5136, 994},  // 10
    {"Aruba", "aa", "aw", "abw", 12.5, -69.9667, "Oranjestad", 12.524, -70.027, 0},  // 11
    {"Australia", "as", "au", "aus", -27.0, 133.0, "Canberra", -35.2835, 149.1281, 571},  // 12
    {"Austria", "au", "at", "aut", 47.3333, 13.3333, "Vienna", 48.2085, 16.3721, 171},  // 13
    {"Azerbaijan", "aj", "az", "aze", 40.5, 47.5, "Baku", 40.3777, 49.892, 0},  // 14
    {"Bahamas", "bf", "bs", "bhs", 24.25, -76.0, "Nassau", 25.0582, -77.3431, 0},  // 15
    {"Bahrain", "ba", "bh", "bhr", 26.0, 50.55, "Manama", 26.2154, 50.5832, 0},  // 16
    {"Bangladesh", "bg", "bd", "bgd", 24.0, 90.0, "Dhaka", 23.7104, 90.4074, 23},  // 17
    {"Barbados", "bb", "bb", "brb", 13.1667, -59.5333, "Bridgetown", 13.1, -59.6167, 0},  // 18
    {"Belarus", "bo", "by", "blr", 53.0, 28.0, "Minsk", 53.9, 27.5667, 222},  // 19
    {"Belgium", "be", "be", "bel", 50.8333, 4.0, "Brussels", 50.8505, 4.3488, 28},  // 20
    {"Belize", "bh", "bz", "blz", 17.25, -88.75, "Belmopan", 17.25, -88.7667, 71},  // 21
    {"Benin", "bn", "bj", "ben", 9.5, 2.25, "Porto-Novo", 6.4965, 2.6036, 0},  // 22
    {"Bermuda", "bd", "bm", "bmu", 32.3333, -64.75, "Hamilton", 32.2915, -64.778, 0},  // 23
    {"Bhutan", "bt", "bt", "btn", 27.5, 90.5, "Thimphu", 27.4661, 89.6419, 2320},  // 24
    {"Bolivia", "bl", "bo", "bol", -17.0, -65.0, "La Paz", -16.5, -68.15, 3782},  // 25
    {"Bosnia and Herzegovina", "bk", "ba", "bih", 44.0, 18.0, "Sarajevo", 43.8486, 18.3564, 509},  // 26
    {"Botswana", "bc", "bw", "bwa", -22.0, 24.0, "Gaborone", -24.6545, 25.9086, 1011},  // 27
    {"Brazil", "br", "br", "bra", -10.0, -55.0, "Brasilia", -15.7797, -47.9297, 1136},  // 28
    {"British Virgin Islands", "vi", "vg", "vgb", 18.5, -64.5, "Road Town", 18.4167, -64.6167, 0},  // 29
    {"Brunei", "bx", "bn", "brn", 4.5, 114.6667, "Bandar Seri Begawan", 4.9403, 114.9481, 0},  // 30
    {"Bulgaria", "bu", "bg", "bgr", 43.0, 25.0, "Sofia", 42.6975, 23.3241, 562},  // 31
    {"Burkina Faso", "uv", "bf", "bfa", 13.0, -2.0, "Ouagadougou", 12.3657, -1.5339, 307},  // 32
    {"Burma;Myanmar", "bm", "mm", "mmr", 22.0, 98.0, "Rangoon", 19.7361, 96.2089, 77},  // 33
    {"Burundi", "by", "bi", "bdi", -3.5, 30.0, "Bujumbura", -3.3822, 29.3644, 805},  // 34
    {"Cambodia", "cb", "kh", "khm", 13.0, 105.0, "Phnom Penh", 11.5625, 104.916, 20},  // 35
    {"Cameroon", "cm", "cm", "cmr", 6.0, 12.0, "Yaounde", 3.8667, 11.5167, 726},  // 36
    {"Canada", "ca", "ca", "can", 60.0, -95.0, "Ottawa", 45.4112, -75.6981, 71},  // 37
    {"Cape Verde", "cv", "cv", "cpv", 16.0, -24.0, "Praia", 14.9315, -23.5125, 0},  // 38
    {"Cayman Islands", "cj", "ky", "cym", 19.5, -80.5, "George Town", 19.2869, -81.3671, 0},  // 39
    {"Central African Republic", "ct", "cf", "caf", 7.0, 21.0, "Bangui", 4.3612, 18.555, 351},  // 40
    {"Chad", "cd", "td", "tcd", 15.0, 19.0, "N'Djamena", 12.1067, 15.0444, 299},  // 41
    {"Chile", "ci", "cl", "chl", -30.0, -71.0, "Santiago", -33.4569, -70.6483, 556},  // 42
    {"China", "ch", "cn", "chn", 35.0, 105.0, "Beijing", 39.9075, 116.3972, 49},  // 43
    {"Christmas Island", "kt", "cx", "cxr", -10.5, 105.6667, "The Settlement", -10.4217, 105.6791, 0},  // 44
    {"Cocos Islands", "ck", "cc", "cck", -12.5, 96.8333, "West Island", -12.1568, 96.8225, 0},  // 45
    {"Colombia", "co", "co", "col", 4.0, -72.0, "Bogota", 4.6097, -74.0817, 2582},  // 46
    {"Comoros", "cn", "km", "com", -12.1667, 44.25, "Moroni", -11.7022, 43.2551, 0},  // 47
    {"Congo, Democratic Republic of the", "cg", "cd", "cod", 0.0, 25.0, "Kinshasa", -4.3214, 15.3081, 204},  // 48
    {"Congo, Republic of the", "cf", "cg", "cog", -1.0, 15.0, "Brazzaville", -4.2661, 15.2832, 204},  // 49
    {"Cook Islands", "cw", "ck", "cok", -21.2333, -159.7667, "Avarua", -21.2078, -159.775, 0},  // 50
    {"Costa Rica", "cs", "cr", "cri", 10.0, -84.0, "San Jose", 9.9333, -84.0833, 1161},  // 51
    {"Cote d'Ivoire", "iv", "ci", "civ", 8.0, -5.0, "Yamoussoukro", 6.8205, -5.2767, 214},  // 52
    {"Croatia", "hr", "hr", "hrv", 45.1667, 15.5, "Zagreb", 45.8144, 15.978, 135},  // 53
    {"Cuba", "cu", "cu", "cub", 21.5, -80.0, "Havana", 23.133, -82.383, 0},  // 54
    {"Cyprus", "cy", "cy", "cyp", 35.0, 33.0, "Nicosia", 35.1667, 33.3667, 149},  // 55
    {"Czech Republic", "ez", "cz", "cze", 49.75, 15.5, "Prague", 50.088, 14.4208, 202},  // 56
    {"Denmark", "da", "dk", "dnk", 56.0, 10.0, "Copenhagen", 55.6759, 12.5655, 0},  // 57
    {"Djibouti", "dj", "dj", "dji", 11.5, 43.0, "Djibouti", 11.589, 43.145, 0},  // 58
    {"Dominica", "do", "dm", "dma", 15.4167, -61.3333, "Roseau", 15.3017, -61.3881, 0},  // 59
    {"Dominican Republic", "dr", "do", "dom", 19.0, -70.6667, "Santo Domingo", 18.5001, -69.9886, 0},  // 60
    {"East Timor;Timor Lestre", "tt", "tl", "tls", -8.8333, 125.9167, "Dili", -8.5586, 125.5736, 0},  // 61
    {"Ecuador", "ec", "ec", "ecu", -2.0, -77.5, "Quito", -0.2298, -78.525, 2854},  // 62
    {"Egypt", "eg", "eg", "egy", 27.0, 30.0, "Cairo", 30.0626, 31.2497, 23},  // 63
    {"El Salvador", "es", "sv", "slv", 13.8333, -88.9167, "San Salvador", 13.6893, -89.1872, 653},  // 64
    {"Equatorial Guinea", "ek", "gq", "gnq", 2.0, 10.0, "Malabo", 3.75, 8.7833, 0},  // 65
    {"Eritrea", "er", "er", "eri", 15.0, 39.0, "Asmara", 15.3333, 38.9333, 2336},  // 66
    {"Estonia", "en", "ee", "est", 59.0, 26.0, "Tallinn", 59.437, 24.7535, 0},  // 67
    {"Ethiopia", "et", "et", "eth", 8.0, 38.0, "Addis Ababa", 9.025, 38.7469, 2405},  // 68
    {"Falkland Islands; Malvinas", "fk", "fk", "flk", -51.75, -59.0, "Stanley", -51.7, -57.85, 0},  // 69
    {"Faroe Islands", "fo", "fo", "fro", 62.0, -7.0, "Torshavn", 62.0097, -6.7716, 0},  // 70
    {"Fiji", "fj", "fj", "fji", -18.0, 175.0, "Suva", -18.1416, 178.4415, 0},  // 71
    {"Finland", "fi", "fi", "fin", 64.0, 26.0, "Helsinki", 60.1695, 24.9354, 0},  // 72
    {"France", "fr", "fr", "fra", 46.0, 2.0, "Paris", 48.8534, 2.3488, 42},  // 73
    {"French Guiana", "fg", "gf", "guf", 4.0, -53.0, "Cayenne", 4.9333, -52.3333, 0},  // 74
    {"French Polynesia", "fp", "pf", "pyf", -15.0, -140.0, "Papeete", -17.5333, -149.5667, 0},  // 75
    {"Gabon", "gb", "ga", "gab", -1.0, 11.75, "Libreville", 0.3924, 9.4536, 0},  // 76
    {"Gambia", "ga", "gm", "gmb", 13.4667, -16.5667, "Banjul", 13.4527, -16.578, 0},  // 77
    {"Georgia", "gg", "ge", "geo", 42.0, 43.5, "T'bilisi", 41.6941, 44.8337, 491},  // 78
    {"Germany", "gm", "de", "deu", 51.0, 9.0, "Berlin", 52.5244, 13.4105, 74},  // 79
    {"Ghana", "gh", "gh", "gha", 8.0, -2.0, "Accra", 5.556, -0.1969, 0},  // 80
    {"Gibraltar", "gi", "gi", "gib", 36.1333, -5.35, "Gibraltar", 36.1447, -5.3526, 0},  // 81
    {"Greece", "gr", "gr", "grc", 39.0, 22.0, "Athens", 37.9794, 23.7162, 70},  // 82
    {"Greenland", "gl", "gl", "grl", 72.0, -40.0, "Nuuk", 64.1835, -51.7216, 0},  // 83
    {"Grenada", "gj", "gd", "grd", 12.1167, -61.6667, "Saint George's", 12.0564, -61.7485, 0},  // 84
    {"Guadeloupe", "gp", "gp", "glp", 16.25, -61.5833, "Basse-Terre", 15.9985, -61.7255, 0},  // 85
    {"Guam", "gq", "gu", "gum", 13.4667, 144.7833, "Hagatna", 13.4757, 144.7489, 0},  // 86
    {"Guatemala", "gt", "gt", "gtm", 15.5, -90.25, "Guatemala", 14.6407, -90.5133, 1508},  // 87
    {"Guernsey", "gk", "gg", "ggy", 49.4667, -2.5833, "Saint Peter Port", 49.4598, -2.5353, 0},  // 88
    {"Guinea", "gv", "gn", "gin", 11.0, -10.0, "Conakry", 9.538, -13.6773, 0},  // 89
    {"Guinea-Bissau", "pu", "gw", "gnb", 12.0, -15.0, "Bissau", 11.8636, -15.5977, 0},  // 90
    {"Guyana", "gy", "gy", "guy", 5.0, -59.0, "Georgetown", 6.8045, -58.1553, 0},  // 91
    {"Haiti", "ha", "ht", "hti", 19.0, -72.4167, "Port-au-Prince", 18.5392, -72.335, 0},  // 92
    {"Honduras", "ho", "hn", "hnd", 15.0, -86.5, "Tegucigalpa", 14.0818, -87.2068, 944},  // 93
    {"Hungary", "hu", "hu", "hun", 47.0, 20.0, "Budapest", 47.498, 19.0399, 111},  // 94
    {"Iceland", "ic", "is", "isl", 65.0, -18.0, "Reykjavik", 64.1355, -21.8954, 0},  // 95
    {"India", "in", "in", "ind", 20.0, 77.0, "New Delhi", 28.6358, 77.2245, 212},  // 96
    {"Indonesia", "id", "id", "idn", -5.0, 120.0, "Jakarta", -6.2146, 106.8451, 0},  // 97
    {"Iran", "ir", "ir", "irn", 32.0, 53.0, "Tehran", 35.6944, 51.4215, 1178},  // 98
    {"Iraq", "iz", "iq", "irq", 33.0, 44.0, "Baghdad", 33.3406, 44.4009, 41},  // 99
    {"Ireland", "ei", "ie", "irl", 53.0, -8.0, "Dublin", 53.3331, -6.2489, 0},  // 100
    {"Israel", "is", "il", "isr", 31.5, 34.75, "Jerusalem", 31.769, 35.2163, 806},  // 101
    {"Italy", "it", "it", "ita", 42.8333, 12.8333, "Rome", 41.8947, 12.4839, 29},  // 102
    {"Jamaica", "jm", "jm", "jam", 18.25, -77.5, "Kingston", 17.997, -76.7936, 0},  // 103
    {"Japan", "ja", "jp", "jpn", 36.0, 138.0, "Tokyo", 35.6895, 139.6917, 0},  // 104
    {"Jersey", "je", "je", "jey", 49.25, -2.1667, "Saint Helier", 49.188, -2.1049, 0},  // 105
    {"Jordan", "jo", "jo", "jor", 31.0, 36.0, "Amman", 31.9552, 35.945, 757},  // 106
    {"Kazakhstan", "kz", "kz", "kaz", 48.0, 68.0, "Astana", 51.1801, 71.446, 358},  // 107
    {"Kenya", "ke", "ke", "ken", 1.0, 38.0, "Nairobi", -1.2833, 36.8167, 1684},  // 108
    {"Kiribati", "kr", "ki", "kir", 1.4167, 173.0, "Tarawa", 1.3278, 172.977, 0},  // 109
    {"Korea, North", "kn", "kp", "prk", 40.0, 127.0, "Pyongyang", 39.0339, 125.7543, 43},  // 110
    {"Korea, South", "ks", "kr", "kor", 37.0, 127.5, "Seoul", 37.5683, 126.9778, 74},  // 111
    {"Kuwait", "ku", "kw", "kwt", 29.5, 45.75, "Kuwait", 29.3697, 47.9783, 0},  // 112
    {"Kyrgyzstan", "kg", "kg", "kgz", 41.0, 75.0, "Bishkek", 42.87, 74.59, 767},  // 113
    {"Laos", "la", "la", "lao", 18.0, 105.0, "Vientiane", 17.9667, 102.6, 174},  // 114
    {"Latvia", "lg", "lv", "lva", 57.0, 25.0, "Riga", 56.946, 24.1059, 0},  // 115
    {"Lebanon", "le", "lb", "lbn", 33.8333, 35.8333, "Beirut", 33.8889, 35.4944, 0},  // 116
    {"Lesotho", "lt", "ls", "lso", -29.5, 28.5, "Maseru", -29.3167, 27.4833, 1552},  // 117
    {"Liberia", "li", "lr", "lbr", 6.5, -9.5, "Monrovia", 6.3005, -10.7969, 0},  // 118
    {"Libya", "ly", "ly", "lby", 25.0, 17.0, "Tripoli", 32.8752, 13.1875, 0},  // 119
    {"Liechtenstein", "ls", "li", "lie", 47.2667, 9.5333, "Vaduz", 47.1415, 9.5215, 465},  // 120
    {"Lithuania", "lh", "lt", "ltu", 56.0, 24.0, "Vilnius", 54.6892, 25.2798, 98},  // 121
    {"Luxembourg", "lu", "lu", "lux", 49.75, 6.1667, "Luxembourg", 49.6117, 6.13, 316},  // 122
    {"Macedonia", "mk", "mk", "mkd", 41.8333, 22.0, "Skopje", 42.0, 21.4333, 268},  // 123
    {"Madagascar", "ma", "mg", "mdg", -20.0, 47.0, "Antananarivo", -18.9137, 47.5361, 1274},  // 124
    {"Malawi", "mi", "mw", "mwi", -13.5, 34.0, "Lilongwe", -13.9669, 33.7873, 1056},  // 125
    {"Malaysia", "my", "my", "mys", 2.5, 112.5, "Kuala Lumpur", 3.1412, 101.6865, 56},  // 126
    {"Maldives", "mv", "mv", "mdv", 3.25, 73.0, "Male", 4.1748, 73.5089, 0},  // 127
    {"Mali", "ml", "ml", "mli", 17.0, -4.0, "Bamako", 12.65, -8.0, 338},  // 128
    {"Malta", "mt", "mt", "mlt", 35.8333, 14.5833, "Valletta", 35.8997, 14.5147, 0},  // 129
    {"Marshall Islands", "rm", "mh", "mhl", 9.0, 168.0, "Majuro", 7.0897, 171.3803, 0},  // 130
    {"Martinique", "mb", "mq", "mtq", 14.6667, -61.0, "Fort-de-France", 14.6089, -61.0733, 0},  // 131
    {"Mauritania", "mr", "mr", "mrt", 20.0, -12.0, "Nouakchott", 18.0858, -15.9785, 0},  // 132
    {"Mauritius", "mp", "mu", "mus", -20.2833, 57.55, "Port Louis", -20.1619, 57.4989, 0},  // 133
    {"Mayotte", "mf", "yt", "myt", -12.8333, 45.1667, "Mamoudzou", -12.7794, 45.2272, 0},  // 134
    {"Mexico", "mx", "mx", "mex", 23.0, -102.0, "Mexico", 19.4285, -99.1277, 2240},  // 135
    {"Micronesia", "fm", "fm", "fsm", 6.9167, 158.25, "Palikir", 6.9248, 158.1611, 90},  // 136
    {"Moldova", "md", "md", "mda", 47.0, 29.0, "Chisinau", 47.0056, 28.8575, 55},  // 137
    {"Monaco", "mn", "mc", "mco", 43.7333, 7.4, "Monaco", 43.7333, 7.4167, 0},  // 138
    {"Mongolia", "mg", "mn", "mng", 46.0, 105.0, "Ulaanbaatar", 47.9077, 106.8832, 1284},  // 139
    {"Montenegro", "mj", "me", "mne", 42.5, 19.3, "Podgorica", 42.4411, 19.2636, 49},  // 140
    {"Montserrat", "mh", "ms", "msr", 16.75, -62.2, "Plymouth", 16.7055, -62.2129, 0},  // 141
    {"Morocco", "mo", "ma", "mar", 32.0, -5.0, "Rabat", 34.0132, -6.8326, 0},  // 142
    {"Mozambique", "mz", "mz", "moz", -18.25, 35.0, "Maputo", -25.9655, 32.5832, 0},  // 143
    {"Namibia", "wa", "na", "nam", -22.0, 17.0, "Windhoek", -22.5594, 17.0832, 1656},  // 144
    {"Nauru", "nr", "nr", "nru", -0.5333, 166.9167, "Yaren", -0.5477, 166.9209, 0},  // 145
    {"Nepal", "np", "np", "npl", 28.0, 84.0, "Kathmandu", 27.7017, 85.3206, 1317},  // 146
    {"Netherlands", "nl", "nl", "nld", 52.5, 5.75, "Amsterdam", 52.374, 4.8897, 13},  // 147
    {"Netherlands Antilles", "nt", "an", "ant", 12.25, -68.75, "Willemstad", 12.1084, -68.9335, 0},  // 148
    {"New Caledonia", "nc", "nc", "ncl", -21.5, 165.5, "Noumea", -22.2763, 166.4572, 0},  // 149
    {"New Zealand", "nz", "nz", "nzl", -41.0, 174.0, "Wellington", -41.2866, 174.7756, 0},  // 150
    {"Nicaragua", "nu", "ni", "nic", 13.0, -85.0, "Managua", 12.1328, -86.2504, 108},  // 151
    {"Niger", "ng", "ne", "ner", 16.0, 8.0, "Niamey", 13.5137, 2.1098, 206},  // 152
    {"Nigeria", "ni", "ng", "nga", 10.0, 8.0, "Abuja", 9.0833, 7.5333, 777},  // 153
    {"Niue", "ne", "nu", "niu", -19.0333, -169.8667, "Alofi", -19.0595, -169.9187, 0},  // 154
    {"Norfolk Island", "nf", "nf", "nfk", -29.0333, 167.95, "Kingston", -29.0546, 167.9663, 0},  // 155
    {"Northern Mariana Islands", "cq", "mp", "mnp", 15.2, 145.75, "Saipan", 15.2123, 145.7545, 0},  // 156
    {"Norway", "no", "no", "nor", 62.0, 10.0, "Oslo", 59.9127, 10.7461, 0},  // 157
    {"Oman", "mu", "om", "omn", 21.0, 57.0, "Muscat", 23.6139, 58.5922, 0},  // 158
    {"Pakistan", "pk", "pk", "pak", 30.0, 70.0, "Islamabad", 33.7215, 73.0433, 579},  // 159
    {"Palau", "ps", "pw", "plw", 7.5, 134.5, "Melekeok", 7.5004, 134.6235, 70},  // 160
    {"Panama", "pm", "pa", "pan", 9.0, -80.0, "Panama", 8.9936, -79.5197, 0},  // 161
    {"Papua New Guinea", "pp", "pg", "png", -6.0, 147.0, "Port Moresby", -9.4431, 147.1797, 0},  // 162
    {"Paraguay", "pa", "py", "pry", -23.0, -58.0, "Asuncion", -25.3007, -57.6359, 133},  // 163
    {"Peru", "pe", "pe", "per", -10.0, -76.0, "Lima", -12.0432, -77.0282, 152},  // 164
    {"Philippines", "rp", "ph", "phl", 13.0, 122.0, "Manila", 14.6042, 120.9822, 0},  // 165
    {"Poland", "pl", "pl", "pol", 52.0, 20.0, "Warsaw", 52.2298, 21.0118, 113},  // 166
    {"Portugal", "po", "pt", "prt", 39.5, -8.0, "Lisbon", 38.7167, -9.1333, 0},  // 167
    {"Puerto Rico", "rq", "pr", "pri", 18.25, -66.5, "San Juan", 18.4663, -66.1057, 0},  // 168
    {"Qatar", "qa", "qa", "qat", 25.5, 51.25, "Doha", 25.2793, 51.5224, 0},  // 169
    {"Reunion", "re", "re", "reu", -21.1, 55.6, "Saint-Denis", -20.8823, 55.4504, 0},  // 170
    {"Romania", "ro", "ro", "rou", 46.0, 25.0, "Bucharest", 44.4323, 26.1063, 83},  // 171
    {"Russia", "rs", "ru", "rus", 60.0, 100.0, "Moscow", 55.7522, 37.6156, 144},  // 172
    {"Rwanda", "rw", "rw", "rwa", -2.0, 30.0, "Kigali", -1.95, 30.0588, 1542},  // 173
    {"Saint Helena", "sh", "sh", "shn", -15.95, -5.7, "Jamestown", -15.9387, -5.7168, 0},  // 174
    {"Saint Kitts and Nevis", "sc", "kn", "kna", 17.3333, -62.75, "Basseterre", 17.2948, -62.7261, 0},  // 175
    {"Saint Lucia", "st", "lc", "lca", 13.8833, -60.9667, "Castries", 13.9957, -61.0061, 0},  // 176
    {"Saint Pierre and Miquelon", "sb", "pm", "spm", 46.8333, -56.3333, "Saint-Pierre", 46.7809, -56.172, 0},  // 177
    {"Saint Vincent and the Grenadines", "vc", "vc", "vct", 13.25, -61.2, "Kingstown", 13.1587, -61.2248, 0},  // 178
    {"Samoa", "ws", "ws", "wsm", -13.5833, -172.3333, "Apia", -13.8333, -171.7667, 0},  // 179
    {"San Marino", "sm", "sm", "smr", 43.7667, 12.4167, "San Marino", 43.9367, 12.4464, 510},  // 180
    {"Sao Tome and Principe", "tp", "st", "stp", 1.0, 7.0, "Sao Tome", 0.3365, 6.7273, 0},  // 181
    {"Saudi Arabia", "sa", "sa", "sau", 25.0, 45.0, "Riyadh", 24.6877, 46.7219, 612},  // 182
    {"Senegal", "sg", "sn", "sen", 14.0, -14.0, "Dakar", 14.6937, -17.4441, 0},  // 183
    {"Serbia and Montenegro", "yi", "cs", "scg", 44.0, 21.0, "Belgrade", 44.804, 20.4651, 120},  // 184
    {"Seychelles", "se", "sc", "syc", -4.5833, 55.6667, "Victoria", -4.6167, 55.45, 0},  // 185
    {"Sierra Leone", "sl", "sl", "sle", 8.5, -11.5, "Freetown", 8.484, -13.2299, 0},  // 186
    {"Singapore", "sn", "sg", "sgp", 1.3667, 103.8, "Singapore", 1.2897, 103.8501, 0},  // 187
    {"Slovakia", "lo", "sk", "svk", 48.6667, 19.5, "Bratislava", 48.1482, 17.1067, 157},  // 188
    {"Slovenia", "si", "si", "svn", 46.1167, 14.8167, "Ljubljana", 46.0511, 14.5051, 295},  // 189
    {"Solomon Islands", "bp", "sb", "slb", -8.0, 159.0, "Honiara", -9.4333, 159.95, 0},  // 190
    {"Somalia", "so", "so", "som", 10.0, 49.0, "Mogadishu", 2.0371, 45.3438, 0},  // 191
    {"South Africa", "sf", "za", "zaf", -29.0, 24.0, "Pretoria", -25.7449, 28.1878, 1332},  // 192
    {"Spain", "sp", "es", "esp", 40.0, -4.0, "Madrid", 40.4165, -3.7026, 665},  // 193
    {"Sri Lanka", "ce", "lk", "lka", 7.0, 81.0, "Colombo", 6.9319, 79.8478, 0},  // 194
    {"Sudan", "su", "sd", "sdn", 15.0, 30.0, "Khartoum", 15.5518, 32.5324, 381},  // 195
    {"Suriname", "ns", "sr", "sur", 4.0, -56.0, "Paramaribo", 5.8664, -55.1668, 5},  // 196
    {"Svalbard", "sv", "sj", "sjm", 78.0, 20.0, "Longyearbyen", 78.2186, 15.6401, 0},  // 197
    {"Swaziland", "wz", "sz", "swz", -26.5, 31.5, "Mbabane", -26.3167, 31.1333, 1209},  // 198
    {"Sweden", "sw", "se", "swe", 62.0, 15.0, "Stockholm", 59.3326, 18.0649, 0},  // 199
    {"Switzerland", "sz", "ch", "che", 47.0, 8.0, "Bern", 46.9481, 7.4474, 549},  // 200
    {"Syria", "sy", "sy", "syr", 35.0, 38.0, "Damascus", 33.5102, 36.2913, 701},  // 201
    {"Taiwan", "tw", "tw", "twn", 23.5, 121.0, "Taipei", 25.0478, 121.5319, 10},  // 202
    {"Tajikistan", "ti", "tj", "tjk", 39.0, 71.0, "Dushanbe", 38.5358, 68.779, 767},  // 203
    {"Tanzania", "tz", "tz", "tza", -6.0, 35.0, "Dar es Salaam", -6.8235, 39.2695, 0},  // 204
    {"Thailand", "th", "th", "tha", 15.0, 100.0, "Bangkok", 13.754, 100.5014, 2},  // 205
    {"Togo", "to", "tg", "tgo", 8.0, 1.1667, "Lome", 6.1375, 1.2123, 0},  // 206
    {"Tonga", "tn", "to", "ton", -20.0, -175.0, "Nuku'alofa", -21.1333, -175.2, 0},  // 207
    {"Trinidad and Tobago", "td", "tt", "tto", 11.0, -61.0, "Port-of-Spain", 10.6662, -61.5166, 0},  // 208
    {"Tunisia", "ts", "tn", "tun", 34.0, 9.0, "Tunis", 36.819, 10.1658, 0},  // 209
    {"Turkey", "tu", "tr", "tur", 39.0, 35.0, "Ankara", 39.9199, 32.8543, 850},  // 210
    {"Turkmenistan", "tx", "tm", "tkm", 40.0, 60.0, "Ashgabat", 37.95, 58.3833, 219},  // 211
    {"Turks and Caicos Islands", "tk", "tc", "tca", 21.75, -71.5833, "Grand Turk", 21.4612, -71.1419, 0},  // 212
    {"Tuvalu", "tv", "tv", "tuv", -8.0, 178.0, "Funafuti", -8.5243, 179.1942, 0},  // 213
    {"Uganda", "ug", "ug", "uga", 1.0, 32.0, "Kampala", 0.3163, 32.5822, 1223},  // 214
    {"Ukraine", "up", "ua", "ukr", 49.0, 32.0, "Kiev", 50.4482, 30.5021, 168},  // 215
    {"United Arab Emirates", "ae", "ae", "are", 24.0, 54.0, "Abu Dhabi", 24.4667, 54.3667, 0},  // 216
    {"United Kingdom", "uk", "gb", "gbr", 54.0, -2.0, "London", 51.5085, -0.1257, 25},  // 217
    {"United States", "us", "us", "usa", 38.0, -97.0, "Washington, DC", 38.8951, -77.0364, 7},  // 218
    {"Uruguay", "uy", "uy", "ury", -33.0, -56.0, "Montevideo", -34.8335, -56.1673, 0},  // 219
    {"Uzbekistan", "uz", "uz", "uzb", 41.0, 64.0, "Tashkent", 41.2647, 69.2163, 424},  // 220
    {"Vanuatu", "nh", "vu", "vut", -16.0, 167.0, "Port-Vila", -17.7338, 168.3219, 0},  // 221
    {"Vatican", "vt", "va", "vat", 41.9, 12.45, "Vatican City", 41.9024, 12.4533, 55},  // 222
    {"Venezuela", "ve", "ve", "ven", 8.0, -66.0, "Caracas", 10.488, -66.8792, 887},  // 223
    {"Vietnam", "vm", "vn", "vnm", 16.0, 106.0, "Hanoi", 21.0245, 105.8412, 10},  // 224
    {"Virgin Islands", "vq", "vi", "vir", 18.3333, -64.8333, "Charlotte Amalie", 18.3419, -64.9307, 0},  // 225
    {"Wallis and Futuna", "wf", "wf", "wlf", -13.3, -176.2, "Mata-Utu", -13.2816, -176.1745, 0},  // 226
    {"Western Sahara", "wi", "eh", "esh", 24.5, -13.0, "El-Aaiun", 27.1622, -13.2032, 35},  // 227
    {"Yemen", "ym", "ye", "yem", 15.0, 48.0, "Sanaa", 15.3547, 44.2067, 2253},  // 228
    {"Zambia", "za", "zm", "zmb", -15.0, 30.0, "Lusaka", -15.4067, 28.2871, 1277},  // 229
    {"Zimbabwe", "zi", "zw", "zwe", -20.0, 30.0, "Harare", -17.8292, 31.054, 1480},  // 230
}};

}  // namespace qv
