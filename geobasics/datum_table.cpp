// The 271 geodetic datums with their shifts to WGS 84, numbered 1 to 271 in this order.
// Transcribed once from the collected reference data credited in the README; maintained by hand.
// Rows with a scale or rotations carry a full seven-parameter set; all others carry the published
// three-parameter translation of that datum and region.
#include <qvgeo/geobasics/datum_table.h>

namespace qv::detail {

// name, region, ellipsoid, dX, dY, dZ (m), scale (ppm), rX, rY, rZ (arc-seconds)
const std::array<TGeoDatum, NumGeoDatums> GeoDatumTable = {{
    {"ACCRA", "Ghana", gelWarOffice, -199.0, 32.0, 322.0, 0.0, 0.0, 0.0, 0.0},  // 1
    {"ADINDAN", "Burkina Faso", gelClrk80, -118.0, -14.0, 218.0, 0.0, 0.0, 0.0, 0.0},  // 2
    {"ADINDAN", "Cameroon", gelClrk80, -134.0, -2.0, 210.0, 0.0, 0.0, 0.0, 0.0},  // 3
    {"ADINDAN", "Ethiopa", gelClrk80, -165.0, -11.0, 206.0, 0.0, 0.0, 0.0, 0.0},  // 4
    {"ADINDAN", "Mali", gelClrk80, -123.0, -20.0, 220.0, 0.0, 0.0, 0.0, 0.0},  // 5
    {"ADINDAN", "Mean", gelClrk80, -166.0, -15.0, 204.0, 0.0, 0.0, 0.0, 0.0},  // 6
    {"ADINDAN", "Senegal", gelClrk80, -128.0, -18.0, 224.0, 0.0, 0.0, 0.0, 0.0},  // 7
    {"ADINDAN", "Sudan", gelClrk80, -161.0, -14.0, 205.0, 0.0, 0.0, 0.0, 0.0},  // 8
    {"ANTIGUA ISLAND ASTRO 1943", "Antigua", gelClrk80, -270.0, 13.0, 62.0, 0.0, 0.0, 0.0, 0.0},  // 9
    {"AIN EL ABD 1970", "Bahrain", gelInt24, -150.0, -250.0, -1.0, 0.0, 0.0, 0.0, 0.0},  // 10
    {"AIN EL ABD 1970", "Saudi Arabia", gelInt24, -143.0, -236.0, 7.0, 0.0, 0.0, 0.0, 0.0},  // 11
    {"AMERICAN SAMOA 1962", "Samoa Islands", gelClrk66, -115.0, 118.0, 426.0, 0.0, 0.0, 0.0, 0.0},  // 12
    {"RD, AMERSFOORT", "Netherlands", gelBess41, 565.0, 49.9, 465.8, 4.08, -0.409, 0.36, -1.869},  // 13
    {"ANNA 1 ASTRO 1965", "Cocos Islands", gelAuNat65, -491.0, -22.0, 435.0, 0.0, 0.0, 0.0, 0.0},  // 14
    {"ARC 1950", "Southern Africa", gelClrk80, -143.0, -90.0, -294.0, 0.0, 0.0, 0.0, 0.0},  // 15
    {"ARC 1950", "Botswana", gelClrk80, -138.0, -105.0, -289.0, 0.0, 0.0, 0.0, 0.0},  // 16
    {"ARC 1950", "Burundi", gelClrk80, -153.0, -5.0, -292.0, 0.0, 0.0, 0.0, 0.0},  // 17
    {"ARC 1950", "Lesotho", gelClrk80, -125.0, -108.0, -295.0, 0.0, 0.0, 0.0, 0.0},  // 18
    {"ARC 1950", "Malawi", gelClrk80, -161.0, -73.0, -317.0, 0.0, 0.0, 0.0, 0.0},  // 19
    {"ARC 1950", "Swaziland", gelClrk80, -134.0, -105.0, -295.0, 0.0, 0.0, 0.0, 0.0},  // 20
    {"ARC 1950", "Zaire", gelClrk80, -169.0, -19.0, -278.0, 0.0, 0.0, 0.0, 0.0},  // 21
    {"ARC 1950", "Zambia", gelClrk80, -147.0, -74.0, -283.0, 0.0, 0.0, 0.0, 0.0},  // 22
    {"ARC 1950", "Zimbabwe", gelClrk80, -111.16, -186.64, -301.34, 1.776, -4.023, -2.838, 4.899},  // 23
    {"ARC 1960", "Kenya", gelClrk80, -62.44, -209.95, 17.83, 7.382, -6.7857, 7.66, 7.2059},  // 24
    {"ARC 1960", "Tanzania", gelClrk80, -175.0, -23.0, -303.0, 0.0, 0.0, 0.0, 0.0},  // 25
    {"ASCENSION ISLAND 1958", "Ascension", gelInt24, -205.0, 107.0, 53.0, 0.0, 0.0, 0.0, 0.0},  // 26
    {"MONTSERRAT IS. ASTRO 1958", "Montserrat", gelClrk80, 174.0, 359.0, 365.0, 0.0, 0.0, 0.0, 0.0},  // 27
    {"ASTRO STATION 1952", "Marcus Islands", gelInt24, 124.0, -234.0, -25.0, 0.0, 0.0, 0.0, 0.0},  // 28
    {"ASTRO BACON E 1845", "Iwo Jima", gelInt24, 145.0, 75.0, -272.0, 0.0, 0.0, 0.0, 0.0},  // 29
    {"AUSTRALIAN GEODETIC 1966", "Australia", gelAuNat65, -133.0, -48.0, 148.0, 0.0, 0.0, 0.0, 0.0},  // 30
    {"AUSTRALIAN GEODETIC 1984", "Australia", gelAuNat65, -116.0, -50.47, 141.69, 0.0983, 0.23, 0.39, 0.344},  // 31
    {"DJAKARTA", "Indonesia", gelBess41, -377.0, 681.0, -50.0, 0.0, 0.0, 0.0, 0.0},  // 32
    {"BEKAA BASE SOUTH END", "Lebanon", gelClrk80IGN, -465.05, 440.83, 41.4, 15.289, -3.88771, -11.3482, -27.4139},  // 33
    {"BERMUDA 1957", "Bermuda", gelClrk66, -73.0, 213.0, 296.0, 0.0, 0.0, 0.0, 0.0},  // 34
    {"BISSAU", "Guinea Bissau", gelInt24, -173.0, 253.0, 27.0, 0.0, 0.0, 0.0, 0.0},  // 35
    {"BOGOTA OBSERVATORY", "Colombia", gelInt24, 307.0, 304.0, -318.0, 0.0, 0.0, 0.0, 0.0},  // 36
    {"BERNE (1898),", "Switzerland", gelBess41, 660.077, 13.551, 369.344, 5.66, -0.805, -0.578, -0.952},  // 37
    {"BUKIT RIMPAH", "Indonesia", gelBess41, -384.0, 664.0, -48.0, 0.0, 0.0, 0.0, 0.0},  // 38
    {"CAPE CANAVERAL", "Florida & Bahamas", gelClrk66, -2.0, 151.0, 181.0, 0.0, 0.0, 0.0, 0.0},  // 39
    {"CAMPO INCHAUSPE 1969", "Argentina", gelInt24, -148.0, 136.0, 90.0, 0.0, 0.0, 0.0, 0.0},  // 40
    {"CANTON ASTRO 1966", "Phoenix Islands", gelInt24, 298.0, -304.0, -375.0, 0.0, 0.0, 0.0, 0.0},  // 41
    {"CAPE", "South Africa", gelClrk80, -136.0, -108.0, -292.0, 0.0, 0.0, 0.0, 0.0},  // 42
    {"CAMP AREA ASTRO", "Antarctica", gelInt24, -104.0, -129.0, 239.0, 0.0, 0.0, 0.0, 0.0},  // 43
    {"S-JTSK", "Czech Republic", gelBess41, 570.8, 85.7, 462.8, 3.56, 4.998, 1.587, 5.261},  // 44
    {"S-JTSK", "Slovakia", gelBess41, 559.0, 68.7, 451.5, 5.71, 7.92, 4.073, 4.251},  // 45
    {"CARTHAGE", "Tunisia", gelClrk80, -263.0, 6.0, 431.0, 0.0, 0.0, 0.0, 0.0},  // 46
    {"CHATHAM ISLAND ASTRO 1971", "New Zealand", gelInt24, 175.0, -38.0, 113.0, 0.0, 0.0, 0.0, 0.0},  // 47
    {"CHUA ASTRO", "Paraguay", gelInt24, -134.0, 229.0, -29.0, 0.0, 0.0, 0.0, 0.0},  // 48
    {"CH1903+", "Switzerland", gelBess41, 674.374, 15.056, 405.346, 0.0, 0.0, 0.0, 0.0},  // 49
    {"CORREGO ALEGRE", "Brazil", gelInt24, -206.0, 172.0, -6.0, 0.0, 0.0, 0.0, 0.0},  // 50
    {"OBSERVATOROI", "Mozambique South", gelClrk66, -153.0, -227.0, -255.0, 16.99, -1.986, -0.033, 3.866},  // 51
    {"CYPRUS 1935", "Cyprus", gelHongKong63, -104.24, -16.713, 843.593, -60.095, 0.90497, 0.64131, 3.01174},  // 52
    {"ESTONIA 1937", "Estonia", gelBess41, 374.0, 150.0, 588.0, 0.0, 0.0, 0.0, 0.0},  // 53
    {"DABOLA", "Guinea", gelClrk80, -83.0, 37.0, 124.0, 0.0, 0.0, 0.0, 0.0},  // 54
    {"DECEPTION ISLAND", "Antarctica", gelClrk80, 260.0, 12.0, -147.0, 0.0, 0.0, 0.0, 0.0},  // 55
    {"GUX 1 ASTRO", "Guadalcanal Island", gelInt24, 252.0, -209.0, -751.0, 0.0, 0.0, 0.0, 0.0},  // 56
    {"EASTER ISLAND 1967", "Easter Island", gelInt24, 211.0, 147.0, 111.0, 0.0, 0.0, 0.0, 0.0},  // 57
    {"WAKE-ENIWETOK 1960", "Marshall Islands", gelHough60, 102.0, 52.0, -38.0, 0.0, 0.0, 0.0, 0.0},  // 58
    {"EUROPEAN DATUM 1950", "Europe", gelInt24, -87.0, -98.0, -121.0, 0.0, 0.0, 0.0, 0.0},  // 59
    {"EUROPEAN DATUM 1950", "Western Europe", gelInt24, -87.0, -96.0, -120.0, 0.0, 0.0, 0.0, 0.0},  // 60
    {"EUROPEAN DATUM 1950", "Norway & Finland", gelInt24, -87.0, -95.0, -120.0, 0.0, 0.0, 0.0, 0.0},  // 61
    {"EUROPEAN DATUM 1950", "Denmark", gelInt24, -81.1, -89.4, -115.8, -0.54, 0.485, 0.024, 0.413},  // 62
    {"EUROPEAN DATUM 1950", "Channel Islands", gelInt24, -83.901, -98.127, -118.635, 0.0, 0.0, 0.0, 0.0},  // 63
    {"EUROPEAN DATUM 1950", "Portugal and Spain", gelInt24, -84.0, -107.0, -120.0, 0.0, 0.0, 0.0, 0.0},  // 64
    {"EUROPEAN DATUM 1950", "Portugal", gelInt24, -84.248, -108.628, -118.027, 0.0, 0.0, 0.0, 0.0},  // 65
    {"EUROPEAN DATUM 1950", "Balearic Islands", gelInt24, -181.5, -90.3, -187.2, 17.57, 0.144, 0.492, -0.394},  // 66
    {"EUROPEAN DATUM 1950", "Spain (except NW),", gelInt24, -131.0, -100.3, -163.4, 9.39, -1.244, -0.02, -1.144},  // 67
    {"EUROPEAN DATUM 1950", "Spain NW", gelInt24, -178.4, -83.2, -221.3, 21.2, 0.54, -0.532, -0.126},  // 68
    {"EUROPEAN DATUM 1950", "Gibraltar", gelInt24, -116.8, -106.4, -154.4, 0.0, 0.0, 0.0, 0.0},  // 69
    {"EUROPEAN DATUM 1950", "Italy - Sardinia", gelInt24, -97.0, -103.0, -120.0, 0.0, 0.0, 0.0, 0.0},  // 70
    {"EUROPEAN DATUM 1950", "Italy - Sicily", gelInt24, -97.0, -88.0, -135.0, 0.0, 0.0, 0.0, 0.0},  // 71
    {"EUROPEAN DATUM 1950", "Malta", gelInt24, -107.0, -88.0, -149.0, 0.0, 0.0, 0.0, 0.0},  // 72
    {"EUROPEAN DATUM 1950", "Former Yugoslavia N", gelInt24, -83.0, -96.0, -117.0, 0.0, 0.0, 0.0, 0.0},  // 73
    {"EUROPEAN DATUM 1950", "Greece", gelInt24, -84.0, -95.0, -130.0, 0.0, 0.0, 0.0, 0.0},  // 74
    {"EUROPEAN DATUM 1950", "Cyprus", gelInt24, -431.005, -227.335, 331.466, 2.091, -8.88403, 16.7003, -1.68426},  // 75
    {"EUROPEAN DATUM 1950", "Turkey", gelInt24, -84.1, -101.8, -129.7, 1.05, 0.0, 0.0, 0.468},  // 76
    {"EUROPEAN DATUM 1950", "Algeria", gelInt24, -130.95, -94.49, -139.08, 6.957, 0.4405, 0.4565, -0.2244},  // 77
    {"EUROPEAN DATUM 1950", "Tunisia", gelInt24, -112.0, -77.0, -145.0, 0.0, 0.0, 0.0, 0.0},  // 78
    {"EUROPEAN DATUM 1950", "Egypt", gelInt24, -130.0, -117.0, -151.0, 0.0, 0.0, 0.0, 0.0},  // 79
    {"EUROPEAN DATUM 1950", "Lebanon", gelInt24, -417.78, 472.76, -208.24, -4.592, 9.831, 2.9, -18.947},  // 80
    {"EUROPEAN DATUM 1950", "Iran", gelInt24, -117.0, -132.0, -164.0, 0.0, 0.0, 0.0, 0.0},  // 81
    {"EUROPEAN DATUM 1950", "Middle East", gelInt24, -103.0, -106.0, -141.0, 0.0, 0.0, 0.0, 0.0},  // 82
    {"EUROPEAN DATUM 1950", "Oman", gelInt24, -137.34, -189.51, -2.6, -8.017, -4.5735, 2.6257, 0.6849},  // 83
    {"EUROPEAN 1979", "Europe", gelInt24, -86.0, -98.0, -119.0, 0.0, 0.0, 0.0, 0.0},  // 84
    {"EUROPEAN 1979", "Portugal", gelInt24, -81.548, -94.168, -118.729, 0.0, 0.0, 0.0, 0.0},  // 85
    {"ETRF89", "Europe", gelGRS80, 0.0, 0.0, 0.0, 0.0, 0.0, 0.0, 0.0},  // 86
    {"FAHUD", "Oman", gelClrk80, -173.69, -247.71, 162.08, 19.727, -1.141, -2.7308, 8.6343},  // 87
    {"OBSERVATORIO MET. 1939", "Flores", gelInt24, -425.0, -169.0, 81.0, 0.0, 0.0, 0.0, 0.0},  // 88
    {"FORT THOMAS 1955", "St Kitts-Nevis", gelClrk80, -7.0, 215.0, 225.0, 0.0, 0.0, 0.0, 0.0},  // 89
    {"GAN 1970", "Rep. of Maldives", gelInt24, -133.0, -321.0, 50.0, 0.0, 0.0, 0.0, 0.0},  // 90
    {"GEOCENTRIC DATUM AUSTRALIA", "Australia", gelGRS80, 0.0, 0.0, 0.0, 0.0, 0.0, 0.0, 0.0},  // 91
    {"GEODETIC DATUM 1949", "New Zealand", gelInt24, 59.47, -5.04, 187.44, -4.5993, 0.47, -0.1, 1.024},  // 92
    {"DOS 1968", "Gizo Islands", gelInt24, 230.0, -199.0, -752.0, 0.0, 0.0, 0.0, 0.0},  // 93
    {"GRACIOSA BASE SW 1948", "Azores", gelInt24, -104.0, 167.0, -38.0, 0.0, 0.0, 0.0, 0.0},  // 94
    {"GGRS87", "Greece", gelGRS80, -199.87, 74.79, 246.62, 0.0, 0.0, 0.0, 0.0},  // 95
    {"GUNUNG SEGARA", "Indonesia", gelBess41, -403.0, 684.0, 41.0, 0.0, 0.0, 0.0, 0.0},  // 96
    {"GUAM 1963", "Guam", gelClrk66, -100.0, -248.0, 259.0, 0.0, 0.0, 0.0, 0.0},  // 97
    {"HARTEBEESTHOCK 1994", "South Africa", gelGRS80, 0.0, 0.0, 0.0, 0.0, 0.0, 0.0, 0.0},  // 98
    {"HELSINKI, KALLIO CHURCH", "Finland", gelInt24, -84.8, -208.0, -96.3, -0.023, 2.36, 1.0, 3.09},  // 99
    {"HERAT NORTH", "Afghanistan", gelInt24, -333.0, -222.0, 114.0, 0.0, 0.0, 0.0, 0.0},  // 100
    {"MGI DATUM/HERMANNSKOGEL", "Austria", gelBess41, 577.326, 90.129, 463.919, 2.4232, 5.1366, 1.4742, 5.297},  // 101
    {"HERMANNSKOGEL", "Former Yugoslavia", gelBess41, 515.149, 186.233, 511.959, 0.782, 5.49721, 3.51742, -12.948},  // 102
    {"HITO XVIII 1963", "Chile", gelInt24, 16.0, 196.0, 93.0, 0.0, 0.0, 0.0, 0.0},  // 103
    {"HJORSEY 1955", "Iceland", gelInt24, -73.0, 46.0, -86.0, 0.0, 0.0, 0.0, 0.0},  // 104
    {"HONG KONG 1963", "Hong Kong", gelInt24, -156.0, -271.0, -189.0, 0.0, 0.0, 0.0, 0.0},  // 105
    {"HONG KONG 1980", "Hong Kong", gelInt24, -156.8, -269.0, -188.2, 0.0, 0.0, 0.0, 0.0},  // 106
    {"HU-TZU-SHAN", "Taiwan", gelInt24, -637.0, -549.0, -203.0, 0.0, 0.0, 0.0, 0.0},  // 107
    {"HUNGARIAN DATUM 1972", "Hungary", gelGRS67, -56.94, 67.91, 19.32, -1.09, 0.2, 0.32, 0.42},  // 108
    {"BELLEVUE (IGN),", "Efate Island", gelInt24, -127.0, -769.0, 472.0, 0.0, 0.0, 0.0, 0.0},  // 109
    {"INDONESIAN 1974", "Indonesia", gelIndo74, -24.0, -15.0, 5.0, 0.0, 0.0, 0.0, 0.0},  // 110
    {"IRAQ-KUWAIT BOUNDARY 1992", "Iraq/ Kuwait", gelGRS80, 0.0, 0.0, 0.0, 0.0, 0.0, 0.0, 0.0},  // 111
    {"INDIAN", "Bangladesh", gelEver30, 79.2, 670.3, 230.0, 11.034, 0.0, 0.0, -7.274},  // 112
    {"INDIAN", "India & Nepal", gelEver56, 295.0, 736.0, 257.0, 0.0, 0.0, 0.0, 0.0},  // 113
    {"INDIAN", "Pakistan", gelEverPak, 283.0, 682.0, 231.0, 0.0, 0.0, 0.0, 0.0},  // 114
    {"INDIAN 1954", "Thailand", gelEver30Ind, 217.0, 823.0, 299.0, 0.0, 0.0, 0.0, 0.0},  // 115
    {"INDIAN 1960", "Con Son Island", gelEver30Ind, 182.0, 915.0, 344.0, 0.0, 0.0, 0.0, 0.0},  // 116
    {"INDIAN 1960", "Vietnam", gelEver30Ind, 198.0, 881.0, 317.0, 0.0, 0.0, 0.0, 0.0},  // 117
    {"1 INDIAN 1975", "Thailand", gelEver30Ind, 210.0, 814.0, 289.0, 0.0, 0.0, 0.0, 0.0},  // 118
    {"IRELAND 1965", "Ireland", gelModifAiry, 482.53, -130.596, 564.557, 8.15, -1.042, -0.214, -0.631},  // 119
    {"ISTS 061 ASTRO 1968", "South Georgia", gelInt24, -794.0, 119.0, -298.0, 0.0, 0.0, 0.0, 0.0},  // 120
    {"ISTS 073 ASTRO 1969", "Diego Garcia", gelInt24, 208.0, -435.0, -229.0, 0.0, 0.0, 0.0, 0.0},  // 121
    {"JOHNSTON ISLAND 1961", "Johnston Island", gelInt24, 189.0, -79.0, -202.0, 0.0, 0.0, 0.0, 0.0},  // 122
    {"KANDAWALA JACKSON?", "Sri Lanka", gelEver30, 33.7, 886.1, 105.3, -20.187, -0.11, 0.369, 3.701},  // 123
    {"KERTAU 1948", "Malaysia W & Sing.", gelEver48, -366.94, 719.29, -88.93, 9.093, 2.498, 2.142, -12.057},  // 124
    {"KERGUELEN ISLAND 1949", "Kerguelen Island", gelInt24, 145.0, -187.0, 103.0, 0.0, 0.0, 0.0, 0.0},  // 125
    {"KOREAN GEODETIC SYSTEM 1995", "South Korea", gelWGS84, 0.0, 0.0, 0.0, 0.0, 0.0, 0.0, 0.0},  // 126
    {"KKJ", "Finland", gelInt24, -90.7, -106.1, -119.2, 1.37, 4.09, 0.218, -1.05},  // 127
    {"KUSAIE ASTRO 1951", "Caroline Island", gelInt24, 647.0, 1777.0, -1124.0, 0.0, 0.0, 0.0, 0.0},  // 128
    {"LC5 ASTRO 1961", "Cayman Brac", gelClrk66, 42.0, 124.0, 147.0, 0.0, 0.0, 0.0, 0.0},  // 129
    {"LEIGON", "Ghana", gelClrk80, -135.58, 13.23, 364.13, 0.719, 2.0168, -0.0256, 0.8091},  // 130
    {"LIBERIA 1964", "Liberia", gelClrk80, -90.0, 40.0, 88.0, 0.0, 0.0, 0.0, 0.0},  // 131
    {"LISBON (Castelo di Sao Jorge), D7", "Portugal", gelInt24, -238.2, 85.2, 29.9, 2.03, 0.166, 0.046, 1.248},  // 132
    {"LKS94", "Lithuania", gelGRS80, 0.0, 0.0, 0.0, 0.0, 0.0, 0.0, 0.0},  // 133
    {"LUXEMBOURG NT", "Luxembourg", gelInt24, -193.0, 13.7, -39.3, 0.43, -0.41, -2.933, 2.688},  // 134
    {"LUZON", "Philipines - Mindanao", gelClrk66, -133.0, -79.0, -72.0, 0.0, 0.0, 0.0, 0.0},  // 135
    {"LUZON", "Philipines", gelClrk66, -133.0, -77.0, -51.0, 0.0, 0.0, 0.0, 0.0},  // 136
    {"MASSAWA", "Eritrea", gelBess41, 639.0, 405.0, 60.0, 0.0, 0.0, 0.0, 0.0},  // 137
    {"MERCHICH", "Morroco", gelClrk80, 31.0, 146.0, 47.0, 0.0, 0.0, 0.0, 0.0},  // 138
    {"MIDWAY ASTRO 1961", "Midway Islands", gelInt24, 912.0, -58.0, 1227.0, 0.0, 0.0, 0.0, 0.0},  // 139
    {"MAHE 1971", "Seychelles - Mahe Is.", gelClrk80, 41.0, -220.0, -134.0, 0.0, 0.0, 0.0, 0.0},  // 140
    {"MINNA", "Cameroon", gelClrk80, -81.0, -84.0, 115.0, 0.0, 0.0, 0.0, 0.0},  // 141
    {"MINNA", "Nigeria", gelClrk80, -92.0, -93.0, 122.0, 0.0, 0.0, 0.0, 0.0},  // 142
    {"ROME 1940", "Italy mainland", gelInt24, -104.1, -49.1, -9.9, -11.68, 0.971, -2.917, 0.714},  // 143
    {"ROME 1940", "Italy - Sardinia", gelInt24, -168.6, -34.0, 38.6, -9.48, -0.374, -0.679, -1.379},  // 144
    {"ROME 1940", "Italy - Sicily", gelInt24, -50.2, -50.4, 84.8, -28.08, -0.69, -2.012, 0.459},  // 145
    {"M'PORALOKO", "Gabon", gelClrk80, -74.0, -130.0, 42.0, 0.0, 0.0, 0.0, 0.0},  // 146
    {"VITI LEVU 1916", "Fiji - Viti Levu", gelClrk80, 51.0, 391.0, -36.0, 0.0, 0.0, 0.0, 0.0},  // 147
    {"NAHRWAN", "Oman - Masirah Island", gelClrk80, -247.0, -148.0, 369.0, 0.0, 0.0, 0.0, 0.0},  // 148
    {"NAHRWAN", "Saudi Arabia", gelClrk80, -243.0, -192.0, 477.0, 0.0, 0.0, 0.0, 0.0},  // 149
    {"NAHRWAN", "United Arab Emirates", gelClrk80, -249.0, -156.0, 381.0, 0.0, 0.0, 0.0, 0.0},  // 150
    {"NAPARIMA", "Trinidad & Tobago", gelInt24, -10.0, 375.0, 165.0, 0.0, 0.0, 0.0, 0.0},  // 151
    {"NORTH AMERICAN 1983", "US - Alaska", gelGRS80, 0.0, 0.0, 0.0, 0.0, 0.0, 0.0, 0.0},  // 152
    {"NORTH AMERICAN 1983", "US - Aleutian", gelGRS80, -2.0, 0.0, 4.0, 0.0, 0.0, 0.0, 0.0},  // 153
    {"NORTH AMERICAN 1983", "Canada", gelGRS80, 0.0, 0.0, 0.0, 0.0, 0.0, 0.0, 0.0},  // 154
    {"NORTH AMERICAN 1983", "US - CONUS", gelGRS80, 0.0, 0.0, 0.0, 0.0, 0.0, 0.0, 0.0},  // 155
    {"NORTH AMERICAN 1983", "US - Hawaii", gelGRS80, 1.0, 1.0, -1.0, 0.0, 0.0, 0.0, 0.0},  // 156
    {"NORTH AMERICAN 1983", "Mexico", gelGRS80, 0.0, 0.0, 0.0, 0.0, 0.0, 0.0, 0.0},  // 157
    {"NORTH AMERICAN 1927", "US - Alaska", gelClrk66, -5.0, 135.0, 172.0, 0.0, 0.0, 0.0, 0.0},  // 158
    {"NORTH AMERICAN 1927", "Canada", gelClrk66, -10.0, 158.0, 187.0, 0.0, 0.0, 0.0, 0.0},  // 159
    {"NORTH AMERICAN 1927", "Canada-Alberta/British Columbia", gelClrk66, -7.0, 162.0, 188.0, 0.0, 0.0, 0.0, 0.0},  // 160
    {"NORTH AMERICAN 1927", "US - Aleutian East", gelClrk66, -2.0, 152.0, 149.0, 0.0, 0.0, 0.0, 0.0},  // 161
    {"NORTH AMERICAN 1927", "US - Aleutian West", gelClrk66, 2.0, 204.0, 105.0, 0.0, 0.0, 0.0, 0.0},  // 162
    {"NORTH AMERICAN 1927", "Bahamas", gelClrk66, -4.0, 154.0, 178.0, 0.0, 0.0, 0.0, 0.0},  // 163
    {"NORTH AMERICAN 1927", "Canal Zone", gelClrk66, 0.0, 125.0, 201.0, 0.0, 0.0, 0.0, 0.0},  // 164
    {"NORTH AMERICAN 1927", "Caribbean", gelClrk66, -3.0, 142.0, 183.0, 0.0, 0.0, 0.0, 0.0},  // 165
    {"NORTH AMERICAN 1927", "Central America", gelClrk66, 0.0, 125.0, 194.0, 0.0, 0.0, 0.0, 0.0},  // 166
    {"NORTH AMERICAN 1927", "US - CONUS", gelClrk66, -8.0, 160.0, 176.0, 0.0, 0.0, 0.0, 0.0},  // 167
    {"NORTH AMERICAN 1927", "Cuba", gelClrk66, -9.0, 152.0, 178.0, 0.0, 0.0, 0.0, 0.0},  // 168
    {"NORTH AMERICAN 1927", "CanadaEast", gelClrk66, -22.0, 160.0, 190.0, 0.0, 0.0, 0.0, 0.0},  // 169
    {"NORTH AMERICAN 1927", "US - Eastern", gelClrk66, -9.0, 161.0, 179.0, 0.0, 0.0, 0.0, 0.0},  // 170
    {"NORTH AMERICAN 1927", "Greenland", gelClrk66, 11.0, 114.0, 195.0, 0.0, 0.0, 0.0, 0.0},  // 171
    {"NORTH AMERICAN 1927", "Canada - Manitoba/Ontario", gelClrk66, -9.0, 157.0, 184.0, 0.0, 0.0, 0.0, 0.0},  // 172
    {"NORTH AMERICAN 1927", "Mexico", gelClrk66, -12.0, 130.0, 190.0, 0.0, 0.0, 0.0, 0.0},  // 173
    {"NORTH AMERICAN 1927", "Canada - NW Territory", gelClrk66, 4.0, 159.0, 188.0, 0.0, 0.0, 0.0, 0.0},  // 174
    {"NORTH AMERICAN 1927", "San Salvador", gelClrk66, 1.0, 140.0, 165.0, 0.0, 0.0, 0.0, 0.0},  // 175
    {"NORTH AMERICAN 1927", "US - Western", gelClrk66, -8.0, 159.0, 175.0, 0.0, 0.0, 0.0, 0.0},  // 176
    {"NORTH AMERICAN 1927", "Canada - Yukon", gelClrk66, -7.0, 139.0, 181.0, 0.0, 0.0, 0.0, 0.0},  // 177
    {"NTF", "France", gelClrk80IGN, -168.0, -60.0, 320.0, 0.0, 0.0, 0.0, 0.0},  // 178
    {"NGO 1948", "Norway", gelBesselMod, 278.3, 93.0, 474.5, 6.21, 7.889, 0.05, -6.61},  // 179
    {"NORTH SAHARA 1959", "Algeria", gelClrk80, -186.0, -93.0, 310.0, 0.0, 0.0, 0.0, 0.0},  // 180
    {"BELGIUM DATUM 1972", "Belgium", gelInt24, -99.1, 53.3, -112.5, -1.0, 0.419, -0.83, 1.885},  // 181
    {"OLD EGYPTIAN 1907", "Egypt", gelHelm06, -130.0, 110.0, -13.0, 0.0, 0.0, 0.0, 0.0},  // 182
    {"ORDNANCE GB 1936", "GB - Great Britain", gelAiry30, 446.448, -125.157, 542.06, -20.49, 0.15, 0.247, 0.8421},  // 183
    {"OLD HAWAI'IAN", "US - Hawaii Mean", gelClrk66, 61.0, -285.0, -181.0, 0.0, 0.0, 0.0, 0.0},  // 184
    {"OLD HAWAI'IAN", "US - Hawaii", gelClrk66, 89.0, -279.0, -183.0, 0.0, 0.0, 0.0, 0.0},  // 185
    {"OLD HAWAI'IAN", "US - Kauai", gelClrk66, 45.0, -290.0, -172.0, 0.0, 0.0, 0.0, 0.0},  // 186
    {"OLD HAWAI'IAN", "US - Maui", gelClrk66, 65.0, -290.0, -190.0, 0.0, 0.0, 0.0, 0.0},  // 187
    {"OLD HAWAI'IAN", "US - Oahu", gelClrk66, 58.0, -283.0, -182.0, 0.0, 0.0, 0.0, 0.0},  // 188
    {"OLD HAWAI'IAN", "US - Hawaii", gelInt24, 201.0, -228.0, -346.0, 0.0, 0.0, 0.0, 0.0},  // 189
    {"OLD HAWAI'IAN", "US - Hawaii", gelInt24, 229.0, -222.0, -348.0, 0.0, 0.0, 0.0, 0.0},  // 190
    {"OLD HAWAI'IAN", "US - Kauai", gelInt24, 185.0, -233.0, -337.0, 0.0, 0.0, 0.0, 0.0},  // 191
    {"OLD HAWAI'IAN", "US - Maui", gelInt24, 205.0, -233.0, -355.0, 0.0, 0.0, 0.0, 0.0},  // 192
    {"OLD HAWAI'IAN", "US - Oahu", gelInt24, 198.0, -226.0, -347.0, 0.0, 0.0, 0.0, 0.0},  // 193
    {"PALESTINE 1928", "Israel", gelNahrwan29, -223.0, -70.0, 271.0, 0.0, 0.0, 0.0, 0.0},  // 194
    {"AYABELLA LIGHTHOUSE", "Djibouti", gelClrk80, -79.0, -129.0, 145.0, 0.0, 0.0, 0.0, 0.0},  // 195
    {"PITCAIRN ASTRO 1967", "Pitcairn Island", gelInt24, 185.0, 165.0, 42.0, 0.0, 0.0, 0.0, 0.0},  // 196
    {"PICO DE LAS NIEVES.", "Spain - Canary Islands", gelInt24, -307.0, -92.0, 127.0, 0.0, 0.0, 0.0, 0.0},  // 197
    {"PORTO SANTO 1936.", "Portugal - Maderia", gelInt24, -499.0, -249.0, 314.0, 0.0, 0.0, 0.0, 0.0},  // 198
    {"PROV. S AMERICAN 1956", "Bolivia", gelInt24, -270.0, 188.0, -388.0, 0.0, 0.0, 0.0, 0.0},  // 199
    {"PROV. S AMERICAN 1956", "Colombia", gelInt24, -282.0, 169.0, -371.0, 0.0, 0.0, 0.0, 0.0},  // 200
    {"PROV. S AMERICAN 1956", "Ecuador", gelInt24, -278.0, 171.0, -367.0, 0.0, 0.0, 0.0, 0.0},  // 201
    {"PROV. S AMERICAN 1956", "Guyana", gelInt24, -298.0, 159.0, -369.0, 0.0, 0.0, 0.0, 0.0},  // 202
    {"PROV. S AMERICAN 1956", "Chile North", gelInt24, -270.0, 183.0, -390.0, 0.0, 0.0, 0.0, 0.0},  // 203
    {"PROV. S AMERICAN 1956", "Peru", gelInt24, -279.0, 175.0, -379.0, 0.0, 0.0, 0.0, 0.0},  // 204
    {"PROV. S AMERICAN 1956", "South America", gelInt24, -288.0, 175.0, -376.0, 0.0, 0.0, 0.0, 0.0},  // 205
    {"PROV. S AMERICAN 1956", "Chile South", gelInt24, -305.0, 243.0, -442.0, 0.0, 0.0, 0.0, 0.0},  // 206
    {"PROV. S AMERICAN 1956", "Venezuela", gelInt24, -197.43, 139.39, -192.8, -5.109, 5.266, 1.238, -2.381},  // 207
    {"POINT 58", "Burkina Faso & Niger", gelClrk80, -106.0, -129.0, 165.0, 0.0, 0.0, 0.0, 0.0},  // 208
    {"POINT NOIRE 1948", "Congo", gelClrk80, -148.0, 51.0, -291.0, 0.0, 0.0, 0.0, 0.0},  // 209
    {"PULKOVO 1942", "Russia", gelKrass40, 28.0, -130.0, -95.0, 0.0, 0.0, 0.0, 0.0},  // 210
    {"PULKOVO 1942", "Germany", gelKrass40, 24.0, -123.0, -94.0, 1.1, -0.02, 0.25, 0.13},  // 211
    {"PULKOVO 1942", "Estonia", gelKrass40, 21.58719, -97.541, -60.925, -4.6121, 1.01378, 0.58117, 0.2348},  // 212
    {"PUERTO RICO & Virgin Is.", "Puerto Rico & Virgin Islands", gelClrk66, 11.0, 72.0, -101.0, 0.0, 0.0, 0.0, 0.0},  // 213
    {"QATAR NATIONAL 1974", "Qatar", gelInt24, -126.44, -298.86, -10.92, 3.73, 1.23, 0.27, 0.85},  // 214
    {"QATAR NATIONAL 1995", "Qatar", gelInt24, -119.425, -303.6587, -11.00061, 3.65707, 1.1643, 0.17446, 1.096259},  // 215
    {"QORNOQ ", "Greenland South", gelInt24, 164.0, 138.0, -189.0, 0.0, 0.0, 0.0, 0.0},  // 216
    {"DHDN (RAUENBERG),", "Germany", gelBess41, 582.0, 105.0, 414.0, 8.3, 1.04, 0.35, -3.08},  // 217
    {"REUNION ", "Mascarene Is", gelInt24, 94.0, -948.0, -1262.0, 0.0, 0.0, 0.0, 0.0},  // 218
    {"RT90", "Sweden", gelBess41, 414.1, 41.3, 603.1, 0.0, -0.855, 2.141, -7.023},  // 219
    {"SANTO(DOS), 1965", "Vanuatu - Espirito Santo", gelInt24, 170.0, 42.0, 84.0, 0.0, 0.0, 0.0, 0.0},  // 220
    {"SOUTH AMERICAN 1969", "Argentina", gelSAm69, -62.0, -1.0, -37.0, 0.0, 0.0, 0.0, 0.0},  // 221
    {"SOUTH AMERICAN 1969", "Galapagos", gelSAm69, -47.0, 26.0, -42.0, 0.0, 0.0, 0.0, 0.0},  // 222
    {"SOUTH AMERICAN 1969", "Bolivia", gelSAm69, -61.0, 2.0, -48.0, 0.0, 0.0, 0.0, 0.0},  // 223
    {"SOUTH AMERICAN 1969", "Brazil", gelSAm69, -60.0, -2.0, -41.0, 0.0, 0.0, 0.0, 0.0},  // 224
    {"SOUTH AMERICAN 1969", "Chile", gelSAm69, -75.0, -1.0, -44.0, 0.0, 0.0, 0.0, 0.0},  // 225
    {"SOUTH AMERICAN 1969", "Colombia", gelSAm69, -44.0, 6.0, -36.0, 0.0, 0.0, 0.0, 0.0},  // 226
    {"SOUTH AMERICAN 1969", "Ecuador", gelSAm69, -48.0, 3.0, -44.0, 0.0, 0.0, 0.0, 0.0},  // 227
    {"SOUTH AMERICAN 1969", "Guyana", gelSAm69, -53.0, 3.0, -47.0, 0.0, 0.0, 0.0, 0.0},  // 228
    {"SOUTH AMERICAN 1969", "Paraguay", gelSAm69, -61.0, 2.0, -33.0, 0.0, 0.0, 0.0, 0.0},  // 229
    {"SOUTH AMERICAN 1969", "Peru", gelSAm69, -58.0, 0.0, -44.0, 0.0, 0.0, 0.0, 0.0},  // 230
    {"SOUTH AMERICAN 1969", "South America", gelSAm69, -57.0, 1.0, -41.0, 0.0, 0.0, 0.0, 0.0},  // 231
    {"SOUTH AMERICAN 1969", "Trinidad", gelSAm69, -45.0, 12.0, -33.0, 0.0, 0.0, 0.0, 0.0},  // 232
    {"SOUTH AMERICAN 1969", "Venezuela", gelSAm69, -45.0, 8.0, -33.0, 0.0, 0.0, 0.0, 0.0},  // 233
    {"SAO BRAZ", "Santa Maria Islands", gelInt24, -203.0, 141.0, 53.0, 0.0, 0.0, 0.0, 0.0},  // 234
    {"SAPPER HILL 1943 (2000 adj),", "Falkland Islands", gelInt24, -120.379, 126.358, 95.91, -0.349, -0.09247, 2.49933, -10.54206},  // 235
    {"SCHWARZECK", "Namibia", gelBess41Nam, 616.0, 97.0, -251.0, 0.0, 0.0, 0.0, 0.0},  // 236
    {"SOUTH EAST ISLAND", "Seychelles", gelClrk80, 30.768, -129.01, -91.673, -10.901, -1.9847, 7.51328, 0.64532},  // 237
    {"SOVIET GEODETIC SYSTEM 85", "Russia", gelSGS85, 0.0, 0.0, 4.0, 0.0, 0.0, 0.0, 0.6},  // 238
    {"PZ90 (GLONASS),", "Russia", gelPZ90, -1.1, -0.3, -0.9, 0.0, 0.0, 0.0, 0.169},  // 239
    {"SELVAGEM GRANDE 1938", "Salvage Island", gelInt24, -289.0, -124.0, 60.0, 0.0, 0.0, 0.0, 0.0},  // 240
    {"DOS 71/4", "St Helena", gelInt24, -320.0, 550.0, -494.0, 0.0, 0.0, 0.0, 0.0},  // 241
    {"SIERRA LEONE DATUM 1960", "Sierra Leone", gelClrk80, -88.0, 4.0, 101.0, 0.0, 0.0, 0.0, 0.0},  // 242
    {"SIRGAS", "South America", gelGRS80, 0.0, 0.0, 0.0, 0.0, 0.0, 0.0, 0.0},  // 243
    {"SOUTH ASIA", "Singapore", gelModifFish60, 7.0, -10.0, -26.0, 0.0, 0.0, 0.0, 0.0},  // 244
    {"S-42 (PULKOVO 1942),", "Albania", gelKrass40, 24.0, -130.0, -92.0, 0.0, 0.0, 0.0, 0.0},  // 245
    {"S-42 (PK42),", "Czechoslavakia", gelKrass40, 26.0, -121.0, -78.0, 0.0, 0.0, 0.0, 0.0},  // 246
    {"S-42 (PULKOVO 1942),", "Hungary", gelKrass40, 28.0, -121.0, -77.0, 0.0, 0.0, 0.0, 0.0},  // 247
    {"S-42 (PULKOVO 1942),", "Latvia", gelKrass40, 24.0, -124.0, -82.0, 0.0, 0.0, 0.0, 0.0},  // 248
    {"S-42 (PK 1942),", "Kazakhstan", gelKrass40, 15.0, -130.0, -84.0, 0.0, 0.0, 0.0, 0.0},  // 249
    {"SYSTEM 1942/58 (PULKOVO 1942),", "Poland", gelKrass40, 33.4, -146.6, -76.3, -0.84, -0.359, -0.053, 0.844},  // 250
    {"S-42 (PULKOVO 1942),", "Poland", gelKrass40, 23.0, -124.0, -82.0, 0.0, 0.0, 0.0, 0.0},  // 251
    {"S-42 (PULKOVO 1942),", "Romania", gelKrass40, 27.8, -125.9, -77.5, 0.0, 0.0, 0.0, 0.0},  // 252
    {"S-42 (PULKOVO 1942),", "Romania", gelKrass40, 28.0, -121.0, -77.0, 0.0, 0.0, 0.0, 0.0},  // 253
    {"S-42 (PULKOVO 1942),", "Afghanistan", gelKrass40, 15.0, -130.0, -84.0, 0.0, 0.0, 0.0, 0.0},  // 254
    {"TANANARIVE OBSERVATORY", "Madagascar", gelInt24, -242.75, -191.8, -105.56, 1.149, 0.913, 1.137, -2.698},  // 255
    {"TRISTAN ASTRO 1968", "Tristan da Cunha", gelInt24, -632.0, 438.0, -609.0, 0.0, 0.0, 0.0, 0.0},  // 256
    {"TETE", "Mozambique", gelClrk66, -107.0, -167.0, -211.0, 9.28, 0.871, 0.207, 0.992},  // 257
    {"TIMBALAI 1948 (Everest),", "Malaysia E & Brunei", gelEverest, -582.33, 671.57, -108.15, 6.495, 1.744, 0.56, 2.876},  // 258
    {"TIMBALAI 1968,Adj of 1948", "Malaysia E & Brunei", gelBess41, -528.0, 566.18, -75.24, 9.216, 1.137, 0.194, 3.034},  // 259
    {"TIMBALAI 1968, Adj of 1948", "Malaysia E & Brunei", gelEverest, -541.8, 667.65, -63.42, 9.139, 0.478, -0.24, 4.019},  // 260
    {"TIMBALAI 1948 (Bessel),", "Malaysia E & Brunei", gelBess41, -496.34, 580.76, -44.31, 8.82, 0.098, 0.018, 4.146},  // 261
    {"TOKYO", "Japan", gelBess41, -148.0, 507.0, 685.0, 0.0, 0.0, 0.0, 0.0},  // 262
    {"TOKYO", "South Korea", gelBess41, -147.0, 506.0, 687.0, 0.0, 0.0, 0.0, 0.0},  // 263
    {"TOKYO", "Japan - Okinawa", gelBess41, -158.0, 507.0, 676.0, 0.0, 0.0, 0.0, 0.0},  // 264
    {"TERN ISLAND (FRIG), 1961", "Antarctica", gelInt24, 114.0, -116.0, -333.0, 0.0, 0.0, 0.0, 0.0},  // 265
    {"VOIROL 1875", "Algeria", gelClrk80, -73.0, -247.0, 227.0, 0.0, 0.0, 0.0, 0.0},  // 266
    {"WAKE ISLAND ASTRO 1952", "Wake Island", gelInt24, 276.0, -57.0, 149.0, 0.0, 0.0, 0.0, 0.0},  // 267
    {"WORLD GEODETIC SYSTEM 1972", "World", gelWGS72, 0.0, 0.0, 4.5, 0.219, 0.0, 0.0, 0.554},  // 268
    {"WORLD GEODETIC SYSTEM 1984", "World", gelWGS84, 0.0, 0.0, 0.0, 0.0, 0.0, 0.0, 0.0},  // 269
    {"YACARE ", "Uruguay", gelInt24, -155.0, 171.0, 37.0, 0.0, 0.0, 0.0, 0.0},  // 270
    {"ZANDERIJ", "Suriname", gelInt24, -265.0, 120.0, -358.0, 0.0, 0.0, 0.0, 0.0},  // 271
}};

}  // namespace qv::detail
