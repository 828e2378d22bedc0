#include "cvshutdown.h"

#include <boost/assign/list_of.hpp>

// The order is the shutdown order: servers of queries first, then jobs, databases, master services, media and tape
// daemons, client services, and the Java processes last. `sequence` is a reference from elsewhere, uneven as it stands.
//
// clang-format off: a row a line
const std::deque<killDef> KillDefines =
    boost::assign::list_of
    // sequence, group, name, isCommand, killType, firstOnly, waitType, platformMask, serviceName
    (killDef(1, GROUP_TQL_CLIENT, "sawek", false, KILL9, 0, WAIT_NONE, 3, "Corvane Gumima Service"))(
        killDef(2, GROUP_TQL_MASTER, "detd", false, KILL9, 0, WAIT_NONE, 3, "Corvane Sazotu Service"))(
        killDef(37, GROUP_JOBS, "dobd", false, SELECTIVE_CANCEL, 1, WAIT_NONE, 3, "Corvane Fenoki Service"))(
        killDef(3, GROUP_JOBS, "sodo", false, KILLH, 0, WAIT_NONE, 1, ""))(
        killDef(4, GROUP_JOBS, "bisa", false, KILLH, 0, WAIT_NONE, 1, ""))(
        killDef(5, GROUP_JOBS, "midoden", false, KILLH, 0, WAIT_NONE, 1, ""))(
        killDef(6, GROUP_CORVANE, "muzakepi", false, KILLH, 0, WAIT_NONE, 1, ""))(
        killDef(7, GROUP_CORVANE, "nuwezato", false, KILL, 0, WAIT_NONE, 1, ""))(
        killDef(8, GROUP_CORVANE, "rawurudo", false, KILL, 0, WAIT_NONE, 1, ""))(
        killDef(9, GROUP_CORVANE, "dbeng12", false, KILL, 1, WAIT_NONE, 1, ""))(
        killDef(10, GROUP_JOBS, "du-dun", true, UNMOUNT, 1, WAIT_NONE, 1, ""))(
        killDef(11, GROUP_MASTER, "mamegok", false, PROXY_ALL, 1, WAIT_NONE, 1, ""))(
        killDef(12, GROUP_JOBS, "nohawipa", false, NORMAL_TERMINATE, 1, WAIT_NONE, 1, ""))(
        killDef(15, GROUP_JOBS, "momuhe", false, KILL, 0, WAIT_NONE, 1, ""))(
        killDef(16, GROUP_JOBS, "lebazog", false, KILL, 0, WAIT_NONE, 1, ""))(
        killDef(17, GROUP_JOBS, "wusivov", false, KILL, 0, WAIT_NONE, 1, ""))(
        killDef(18, GROUP_JOBS, "kofen", false, KILL, 0, WAIT_NONE, 1, ""))(
        killDef(19, GROUP_JOBS, "ndmpgumad", false, KILL, 0, WAIT_NONE, 1, ""))(
        killDef(20, GROUP_CORVANE, "koka", false, KILL, 0, WAIT_NONE, 1, ""))(
        killDef(21, GROUP_ULM, "fahazude", false, NORMAL_TERMINATE, 1, WAIT_NONE, 3, "Corvane Domuga Service"))(
        killDef(22, GROUP_ULM, "hidon", false, NORMAL_TERMINATE, 0, WAIT_NONE, 3, "Corvane Gutesa Service"))(
        killDef(23, GROUP_PYX, "tovek", false, NORMAL_TERMINATE, 1, WAIT_NONE, 3, "Corvane Medefe Service"))(
        killDef(24, GROUP_PYX, "wasuk", false, NORMAL_TERMINATE, 1, WAIT_NONE, 3, "Corvane Sugavi Service"))(
        killDef(25, GROUP_PYX, "dbsrv17", false, STOP, 1, WAIT_NONE, 3, "Corvane Rotiva Service"))(
        killDef(25, GROUP_PYX, "CV_dbsrv", false, STOP, 1, WAIT_NONE, 3, "SQLANYs_KESTREL_CV"))(
        killDef(26, GROUP_MASTER, "wozim", false, NORMAL_TERMINATE, 1, WAIT_NONE, 3, "Corvane Rikope Service"))(
        killDef(27, GROUP_MASTER, "ravum", false, NORMAL_TERMINATE, 1, WAIT_NONE, 3, "Corvane Daseva Service"))(
        killDef(28, GROUP_MASTER, "movuhuva", false, NORMAL_TERMINATE, 1, WAIT_NONE, 3, "Corvane Pusila Service"))(
        killDef(29, GROUP_MASTER, "zerah", false, NORMAL_TERMINATE, 1, WAIT_NONE, 3, "Corvane Wupali Service"))(
        killDef(30, GROUP_MASTER, "gunotesi", false, NORMAL_TERMINATE, 1, WAIT_NONE, 3, "Corvane Bipipe Service"))(
        killDef(31, GROUP_MASTER, "lupeg", false, NORMAL_TERMINATE, 1, WAIT_NONE, 3, "Corvane Rubupa Service"))(
        killDef(32, GROUP_MASTER, "hehowug", false, NORMAL_TERMINATE, 1, WAIT_NONE, 3, "Corvane Guzela Service"))(
        killDef(33, GROUP_MASTER, "lura", false, NORMAL_TERMINATE, 1, WAIT_NONE, 3, "Corvane Rageza Service"))(
        killDef(34, GROUP_MASTER, "mesam", false, NORMAL_TERMINATE, 1, WAIT_NONE, 3, "Corvane Gorilu Service"))(
        killDef(35, GROUP_MASTER, "tida", false, NORMAL_TERMINATE, 1, WAIT_NONE, 3, "Corvane Nifuze Service"))(
        killDef(36, GROUP_MASTER, "ndmpsolekagent", false, REMOVE, 0, WAIT_NONE, 3, "NdmpZofufListener"))(
        killDef(38, GROUP_MASTER, "darumesd", false, NORMAL_TERMINATE, 1, WAIT_NONE, 3, "Corvane Dagufa Service"))(
        killDef(39, GROUP_MASTER, "kuror", false, LOCAL_TERMINATE, 1, WAIT_PROCESS, 3, "Corvane Wusuti Service"))(
        killDef(40, GROUP_MASTER, "duwozuh", false, NORMAL_TERMINATE, 1, WAIT_NONE, 3, "Corvane Topule Service"))(
        killDef(41, GROUP_MASTER, "pazed", false, KILL, 0, WAIT_NONE, 3, "Corvane Togaku Service"))(
        killDef(42, GROUP_MASTER, "kefid", false, KILL, 1, WAIT_NONE, 3, "Corvane Zihalu Service"))(
        killDef(43, GROUP_MEDIA_MANAGER, "nanid", false, TERMINATE_T, 0, WAIT_NONE, 1, ""))(
        killDef(44, GROUP_MEDIA_MANAGER, "neded", false, TERMINATE_T, 0, WAIT_NONE, 1, ""))(
        killDef(45, GROUP_MEDIA_MANAGER, "borad", false, TERMINATE_T, 0, WAIT_NONE, 1, ""))(
        killDef(46, GROUP_MEDIA_MANAGER, "sobumon", false, KILL, 0, WAIT_NONE, 1, ""))(
        killDef(47, GROUP_MEDIA_MANAGER, "gagose", false, KILL, 0, WAIT_NONE, 1, ""))(
        killDef(48, GROUP_MEDIA_MANAGER, "kozare", false, KILL, 0, WAIT_NONE, 1, ""))(
        killDef(50, GROUP_MEDIA_MANAGER, "howivd", false, MOSK_STOP, 0, WAIT_NONE, 3, "Corvane Kahapi Service"))(
        killDef(51, GROUP_MEDIA_MANAGER, "mubd", false, MOSK_STOP, 0, WAIT_NONE, 3, "Corvane Goluwu Service"))(
        killDef(52, GROUP_MEDIA_MANAGER, "gufulu", false, NORMAL_TERMINATE, 1, WAIT_NONE, 3, "Corvane Morazi Service"))(
        killDef(53, GROUP_MEDIA_MANAGER, "saveZeldParams", true, ZELDPARAMS, 1, WAIT_NONE, 1, ""))(
        killDef(54, GROUP_MEDIA_MANAGER, "zeld", false, NOARGS, 1, WAIT_NONE, 3, "Corvane Bubilu Service"))(
        killDef(55, GROUP_MEDIA_MANAGER, "kobd", false, HOST_T, 0, WAIT_NONE, 3, "Corvane Pivowi Service"))(
        killDef(56, GROUP_CLIENT, "wehelud", false, NORMAL_TERMINATE, 1, WAIT_NONE, 3, "Corvane Mesika Service"))(
        killDef(57, GROUP_CLIENT, "gutugav", false, NORMAL_TERMINATE, 1, WAIT_NONE, 3, "Corvane Gareko Service"))(
        killDef(58, GROUP_CLIENT, "kisawipu", false, NORMAL_TERMINATE, 1, WAIT_NONE, 3, "Corvane Rufehu Service"))(
        killDef(59, GROUP_CLIENT, "pihuhihu", false, NORMAL_TERMINATE, 1, WAIT_NONE, 3, "Corvane Losafa Service"))(
        killDef(60, GROUP_CLIENT, "halvd", false, NORMAL_TERMINATE, 1, WAIT_NONE, 3, "Corvane Paroha Service"))(
        killDef(61, GROUP_CLIENT, "maginud", false, NORMAL_TERMINATE, 1, WAIT_NONE, 3, "Corvane Kohoku Service"))(
        killDef(62, GROUP_CLIENT, "gowid", false, NORMAL_TERMINATE, 1, WAIT_PROCESS, 3, "Corvane Kopaho Service"))(
        killDef(64, GROUP_JAVA, "sora-lado", false, NORMAL_TERMINATE, 1, WAIT_NONE, 1, ""))(
        killDef(64, GROUP_JAVA, "duva-supi", false, KILL, 1, WAIT_NONE, 1, ""))(
        killDef(64, GROUP_JAVA, "java", false, KILL, 1, WAIT_NONE, 1, ""))(
        killDef(64, GROUP_JAVA, "hiwik", false, SKIP, 1, WAIT_NONE, 1, ""))(
        killDef(63, GROUP_NULL, "fuzerd", false, NORMAL_TERMINATE, 1, WAIT_NONE, 1, ""))(
        killDef(64, GROUP_NULL, "ladekd", false, NORMAL_TERMINATE, 1, WAIT_NONE, 1, ""))(
        killDef(65, GROUP_NULL, "pazukiko", false, NORMAL_TERMINATE, 1, WAIT_NONE, 1, ""))
        .convert_to_container<std::deque<killDef>>();
// clang-format on
