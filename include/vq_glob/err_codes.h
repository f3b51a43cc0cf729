/* Generated from the message table by cmake/gen_err_codes.cmake: do not edit.
 *
 * Named error codes: ERR_FAC_<FACILITY> is a facility code, ERR_<FACILITY>_<IDENT>
 * a message code (facility + a small number) with its text as a comment.
 * Where a name would repeat, every record of that name carries its code as a
 * hexadecimal suffix (ERR_FIL_DELETE_170B). Regenerate with the err-codes build target. */
#ifndef VQ_GLOB_ERR_CODES_H
#define VQ_GLOB_ERR_CODES_H

/* Facilities */
#define ERR_FAC_SYS 0x200u
#define ERR_FAC_GEN 0x1000u
#define ERR_FAC_CLI 0x1100u
#define ERR_FAC_EXE 0x1200u
#define ERR_FAC_ENV 0x1400u
#define ERR_FAC_STD 0x1500u
#define ERR_FAC_FIL 0x1700u
#define ERR_FAC_CRP 0x1800u
#define ERR_FAC_MKL 0x1900u
#define ERR_FAC_MCT 0x1B00u
#define ERR_FAC_EXP 0x1C00u
#define ERR_FAC_NET 0x1E00u
#define ERR_FAC_REG 0x1F00u
#define ERR_FAC_FS 0x2000u
#define ERR_FAC_TV 0x3100u
#define ERR_FAC_MSG 0x5000u
#define ERR_FAC_PLXCLN 0x6200u
#define ERR_FAC_PLXSVR 0x6600u
#define ERR_FAC_KTMAPI 0x6700u
#define ERR_FAC_ACTIVE_SCAN 0x6800u
#define ERR_FAC_TO_ARCHIVE 0x6A00u
#define ERR_FAC_TO_ACTIVE 0x6C00u
#define ERR_FAC_SUBMIT 0x7200u
#define ERR_FAC_ARCHIVE_SERVER 0x7400u
#define ERR_FAC_SCHED_GENERAL 0x7C00u
#define ERR_FAC_CNF 0x8200u
#define ERR_FAC_PLXAPI 0x8300u
#define ERR_FAC_MSSHARE 0x8400u
#define ERR_FAC_SCD_8500 0x8500u
#define ERR_FAC_SCD_8600 0x8600u
#define ERR_FAC_SM_UTILS 0x8700u
#define ERR_FAC_EM_UTILS 0x8800u
#define ERR_FAC_UNKNWN 0x300u
#define ERR_FAC_MAP 0x8900u
#define ERR_FAC_CEM 0x9000u
#define ERR_FAC_SEM 0x9100u
#define ERR_FAC_EM_API 0x9200u
#define ERR_FAC_SEC 0x9300u
#define ERR_FAC_PSWD 0x9400u
#define ERR_FAC_DFMCST 0x9500u
#define ERR_FAC_FILTER 0x10000u
#define ERR_FAC_IISMB 0x10100u
#define ERR_FAC_UPDPWD 0x10200u
#define ERR_FAC_SLE 0x10300u

/* CLI (0x1100) */
#define ERR_CLI_NOERR 0x1101u /* "no error !!!!" */
#define ERR_CLI_CNOTFOUND 0x1102u /* "command %s is unknown" */
#define ERR_CLI_AMBCOM 0x1103u /* "command %s is ambiguous" */
#define ERR_CLI_AMBKEYW 0x1104u /* "keyword '%s' is ambiguous" */
#define ERR_CLI_AMBQUAL 0x1105u /* "qualifier '%s' is ambiguous" */
#define ERR_CLI_QNOTFOUND 0x1106u /* "qualifier '%s' is not valid" */
#define ERR_CLI_QMUSTVAL 0x1107u /* "qualifier '%s' must have a value!" */
#define ERR_CLI_INVVAL 0x1108u /* "value '%s' is not allowed for qualifier '%s'" */
#define ERR_CLI_QMUST 0x1109u /* "qualifier '%s' can not be omitted!" */
#define ERR_CLI_INVQCOMB 0x110Au /* "qualifiers '%s' and '%s' can not be specified together" */
#define ERR_CLI_BQMUST 0x110Bu /* "qualifier '%s' must be specified with one of the following qualifiers '%s'" */
#define ERR_CLI_PRSFIL 0x110Cu /* "" */
#define ERR_CLI_TOOMANYP 0x110Du /* "too many parameters specified" */
#define ERR_CLI_INVALMML 0x110Eu /* "Too many items were specified in element no. %d, between the curly brackets. There should be maximum %d items in each element." */
#define ERR_CLI_INVASMML 0x110Fu /* "invalid lists were specified for this qualifier. There should be %d items in each element." */
#define ERR_CLI_PARAMNOT 0x1110u /* "Parameters are not allowed in this command" */
#define ERR_CLI_QNOTNEG 0x1111u /* "qualifier '%s' cannot be negated!" */
#define ERR_CLI_SYNERR 0x1112u /* "syntax error near '%s'" */
#define ERR_CLI_FILELIST 0x1113u /* "error opening files list '%s'" */
#define ERR_CLI_MISSQ 0x1114u /* "unclosed quotation mark" */
#define ERR_CLI_MISSPART 0x1115u /* "unclosed parentheses" */
#define ERR_CLI_CTRLZ 0x1116u /* "" */
#define ERR_CLI_MALLOCF 0x1117u /* "malloc failed in cli '%s' (line %d)" */
#define ERR_CLI_EMPSTR 0x1118u /* "empty string was passed to CLI" */
#define ERR_CLI_PARAMNOTLIST 0x1119u /* "parameter number %s can not be a list of values" */
#define ERR_CLI_INFO 0x111Au /* "error at or near %s" */
#define ERR_CLI_INVALP 0x111Bu /* "value '%s' is not allowed for qualifier '%s'.Allowed values are: %s." */
#define ERR_CLI_NOVALPO 0x111Cu /* "value '%d' is not allowed port number. Allowed values are: 0 - 65535." */

/* EXE (0x1200) */
#define ERR_EXE_GENERAL 0x1201u /* "%s" */
#define ERR_EXE_PIPECREAT 0x1202u /* "error creating pipe" */
#define ERR_EXE_FORK 0x1203u /* "error creating child process [pid %d]" */
#define ERR_EXE_EXECVP 0x1204u /* "error executing shareable image <%s>" */
#define ERR_EXE_PIPEREAD 0x1205u /* "shareable image was unexpectedly terminated" */
#define ERR_EXE_PIPEWRITE 0x1206u /* "error writing to pipe" */
#define ERR_EXE_UNKNMSG 0x1207u /* "unknown message received" */
#define ERR_EXE_NOTCOMPAT 0x1208u /* "caller and Sharable versions are not compatable" */
#define ERR_EXE_PARNOTFOUND 0x1209u /* "requested parameter was not found" */
#define ERR_EXE_INTERR 0x120Au /* "general API internal error" */
#define ERR_EXE_PROTERR 0x120Bu /* "general API protocol error" */
#define ERR_EXE_CONCHG 0x120Cu /* "failed to change user context to user <%s>" */
#define ERR_EXE_WAIT 0x120Du /* "wait for child failed" */
#define ERR_EXE_INCNSNCY 0x120Eu /* "inconsitency detected in api structures, aborting..." */
#define ERR_EXE_NOTACTIVE 0x120Fu /* "entry is not active" */
#define ERR_EXE_GETCWD 0x1210u /* "error getting current working directory" */
#define ERR_EXE_SETCWD 0x1211u /* "error setting current working directory to <%s>" */
#define ERR_EXE_GETUSER 0x1212u /* "error getting current username " */
#define ERR_EXE_LOGFILE 0x1213u /* "error creating log file <%s> [user is %s]" */
#define ERR_EXE_ERRLOGFILE 0x1214u /* "error creating error log file %s [user is %s]" */
#define ERR_EXE_DUPERR 0x1215u /* "error duplicating descriptor " */
#define ERR_EXE_UEXECVP 0x1216u /* "error executing user image <%s>" */
#define ERR_EXE_EXECSEC 0x1217u /* "error executing user image <%s> - Security Violation !" */
#define ERR_EXE_GETHOME 0x1218u /* "error getting user <%s> home directory" */
#define ERR_EXE_ECHILD 0x1219u /* "got ECHILD when waiting for pid <%d>" */
#define ERR_EXE_QIO 0x121Au /* "qio operation failed" */
#define ERR_EXE_MBXERR 0x121Bu /* "unexpected error while handling mailbox" */
#define ERR_EXE_LOGDEF 0x121Cu /* "error defining logical name <%s>" */
#define ERR_EXE_GETFATDET 0x121Du /* "error getting creator process pipes" */
#define ERR_EXE_NOSUCHFUNC 0x121Eu /* "function %d not found in shareable image" */
#define ERR_EXE_IMGUNEXPTERM 0x121Fu /* "image <%s> was unexpectedly terminated" */
#define ERR_EXE_USRIMGFAIL 0x1220u /* "image <%s> exited with error code %d" */
#define ERR_EXE_ENVVARSET 0x1221u /* "failed to set envionment variable <%s>" */
#define ERR_EXE_BADPAR 0x1222u /* "got bad parameter (%s)" */
#define ERR_EXE_TIMEOUT 0x1223u /* "execute command timed out (%s)" */
#define ERR_EXE_CLSHDL 0x1224u /* "handle closing failure." */
#define ERR_EXE_TERMPRC 0x1225u /* "error in terminating process <%s>, pid <%d>." */

/* KTMAPI (0x6700) */
#define ERR_KTMAPI_GENERAL 0x6701u /* "%s" */
#define ERR_KTMAPI_INTERNAL 0x6702u /* "internal api error (%s)" */
#define ERR_KTMAPI_UKNWNVA 0x6703u /* "unknown value <%s>" */
#define ERR_KTMAPI_INITERR 0x6704u /* "failed to initialize api" */
#define ERR_KTMAPI_COINITERR 0x6705u /* "failed to initialize com library" */
#define ERR_KTMAPI_DEFNO 0x6706u /* "no default value is defined for <%s>" */
#define ERR_KTMAPI_DEFGET 0x6707u /* "failed to get default value <%s>" */
#define ERR_KTMAPI_DEFSET 0x6708u /* "failed to set default value <%s>" */
#define ERR_KTMAPI_MAINTHRD 0x6709u /* "function <%s> must be called from the main thread" */
#define ERR_KTMAPI_UNUSED 0x670Au /* "" */
#define ERR_KTMAPI_SESALLOC 0x670Bu /* "failed to allocate session" */
#define ERR_KTMAPI_SESREL 0x670Cu /* "failed to release session" */
#define ERR_KTMAPI_SESINIT 0x670Du /* "failed to initialize session" */
#define ERR_KTMAPI_SESTERM 0x670Eu /* "failed to terminate session" */
#define ERR_KTMAPI_SESCNT 0x670Fu /* "failed to connect session to server <%s>" */
#define ERR_KTMAPI_SESDCNT 0x6710u /* "failed to disconnect session from server <%s>" */
#define ERR_KTMAPI_SESACNT 0x6711u /* "failed to connect session asynchronously to server <%s>" */
#define ERR_KTMAPI_SESADCNT 0x6712u /* "failed to disconnect session asynchronously from server <%s>" */
#define ERR_KTMAPI_SESISCHK 0x6713u /* "failed to check session connection" */
#define ERR_KTMAPI_SESSTAT 0x6714u /* "failed to get session status" */
#define ERR_KTMAPI_SESREFRESH 0x6715u /* "failed to refresh session" */
#define ERR_KTMAPI_SESBROKEN 0x6716u /* "session is broken" */
#define ERR_KTMAPI_SESSCHED 0x6717u /* "failed to get session scheduler" */
#define ERR_KTMAPI_SESSRET 0x6718u /* "failed to retrieve session property <%s>" */
#define ERR_KTMAPI_MANALLOC 0x6719u /* "failed to allocate manager" */
#define ERR_KTMAPI_MANREL 0x671Au /* "failed to release manager" */
#define ERR_KTMAPI_MANG 0x671Bu /* "failed to get manager property <%s>" */
#define ERR_KTMAPI_MANS 0x671Cu /* "failed to set manager property <%s>" */
#define ERR_KTMAPI_MANTESTEMAIL 0x671Du /* "failed to send test email to <%s>" */
#define ERR_KTMAPI_MANGETREP 0x671Eu /* "failed to get manager report <%s>" */
#define ERR_KTMAPI_BRWALLOC 0x671Fu /* "failed to allocate browser" */
#define ERR_KTMAPI_BRWREL 0x6720u /* "failed to release browser" */
#define ERR_KTMAPI_BRWDRV 0x6721u /* "failed to browse drives of <%s>" */
#define ERR_KTMAPI_BRWSAT 0x6722u /* "failed to browse satellites of <%s>" */
#define ERR_KTMAPI_COLALLOC 0x6723u /* "failed to allocate collection" */
#define ERR_KTMAPI_COLREL 0x6724u /* "failed to release collection" */
#define ERR_KTMAPI_COLINIT 0x6725u /* "failed to initialize collection" */
#define ERR_KTMAPI_COLTERM 0x6726u /* "failed to terminate collection" */
#define ERR_KTMAPI_COLADD 0x6727u /* "failed to add item to collection" */
#define ERR_KTMAPI_COLREM 0x6728u /* "failed to remove item from collection" */
#define ERR_KTMAPI_COLRET 0x6729u /* "failed to retrieve item <%s> from collection" */
#define ERR_KTMAPI_COLITER 0x672Au /* "failed to iterate collection" */
#define ERR_KTMAPI_COLCLR 0x672Bu /* "failed to clear collection" */
#define ERR_KTMAPI_COLCNT 0x672Cu /* "failed to count collection items" */
#define ERR_KTMAPI_COLITMG 0x672Du /* "failed to get collection item property <%s>" */
#define ERR_KTMAPI_COLITMS 0x672Eu /* "failed to set collection item property <%s>" */
#define ERR_KTMAPI_COLITMIND 0x672Fu /* "collection item index <%s> is out of range" */
#define ERR_KTMAPI_ACTCMD 0x6730u /* "failed to execute action command <%s>" */
#define ERR_KTMAPI_JOBCMD 0x6731u /* "failed to execute job command <%s>" */
#define ERR_KTMAPI_TSKCREA 0x6732u /* "failed to create task <%s>" */
#define ERR_KTMAPI_TSKDSTR 0x6733u /* "failed to destroy task <%s>" */
#define ERR_KTMAPI_TSKINIT 0x6734u /* "failed to initialize task <%s>" */
#define ERR_KTMAPI_TSKTERM 0x6735u /* "failed to terminate task <%s>" */
#define ERR_KTMAPI_TSKASN 0x6736u /* "failed to assign task <%s>" */
#define ERR_KTMAPI_TSKCLN 0x6737u /* "failed to clone task <%s>" */
#define ERR_KTMAPI_TSKCLR 0x6738u /* "failed to clear task <%s>" */
#define ERR_KTMAPI_TSKRET 0x6739u /* "failed to retrieve task <%s>" */
#define ERR_KTMAPI_TSKPROPG 0x673Au /* "failed to get task property <%s>" */
#define ERR_KTMAPI_TSKPROPS 0x673Bu /* "failed to set task property <%s>" */
#define ERR_KTMAPI_PRFALLOC 0x673Cu /* "failed to allocate profile" */
#define ERR_KTMAPI_PRFREL 0x673Du /* "failed to release profile" */
#define ERR_KTMAPI_PRFEXE 0x673Eu /* "failed to execute profile <%s>" */
#define ERR_KTMAPI_PRFPROPG 0x673Fu /* "failed to get profile property <%s>" */
#define ERR_KTMAPI_PRFPROPS 0x6740u /* "failed to set profile property <%s>" */
#define ERR_KTMAPI_PRFLOG 0x6741u /* "failed to get profile log <%s>" */

/* ENV (0x1400) */
#define ERR_ENV_SETUID 0x1401u /* "error setting user id to <%s>" */
#define ERR_ENV_SETGID 0x1402u /* "error setting group id to <%s>" */
#define ERR_ENV_INITGROUPS 0x1403u /* "error initializing group access list for user <%s>" */
#define ERR_ENV_SETGROUPS 0x1404u /* "error setting supplementary groups for user <%s>" */
#define ERR_ENV_GETPWNAM 0x1405u /* "error getting password entry for user <%s>" */
#define ERR_ENV_GETPWUID 0x1406u /* "error getting password entry for user id <%s>" */
#define ERR_ENV_CHDIR 0x1407u /* "error changing directory to <%s>" */
#define ERR_ENV_UNUSED_1 0x1408u /* "" */
#define ERR_ENV_GETCWD 0x1409u /* "error getting current working directory" */
#define ERR_ENV_GETHOSTNAME 0x140Au /* "error getting host name" */
#define ERR_ENV_GETHDIR 0x140Bu /* "error getting home directory of user <%s>" */
#define ERR_ENV_GETHOSTBYNAME 0x140Cu /* "error resolving host name <%s>" */
#define ERR_ENV_GETDCERR 0x140Du /* "error getting domain controller of domain <%s>" */
#define ERR_ENV_GETDOMAINERR 0x140Eu /* "error getting domain of user <%s>" */
#define ERR_ENV_GETUSRLGRP 0x140Fu /* "error getting local groups of user <%s>" */
#define ERR_ENV_GETUSRGRP 0x1410u /* "error getting groups of user <%s>" */
#define ERR_ENV_GETPRMGRP 0x1411u /* "error getting primary group of user <%s>" */
#define ERR_ENV_GETDCSUP 0x1412u /* "domain controller of domain <%s> is not supported" */

/* STD (0x1500) */
#define ERR_STD_MEMORY 0x1501u /* "out of memory (%s)" */
#define ERR_STD_STREAM 0x1502u /* "error opening stream <%s>" */
#define ERR_STD_INCOCLI 0x1503u /* "inconsistent command line definition" */
#define ERR_STD_GETCMD 0x1504u /* "error getting command" */
#define ERR_STD_GETPARAM 0x1505u /* "error getting parameter <%s>" */
#define ERR_STD_GETQUAL 0x1506u /* "error getting qualifier <%s>" */
#define ERR_STD_QUALUNKOWN 0x1507u /* "qualifier <%s> is unknown" */

/* GEN (0x1000) */
#define ERR_GEN_MEMORY 0x1001u /* "out of memory (%s at %s-%d)" */
#define ERR_GEN_CORRUPT 0x100Cu /* "memory corrupted (at %s)" */
#define ERR_GEN_GENERAL 0x1002u /* "%s" */
#define ERR_GEN_DEC 0x1003u /* "error decrypting <%s>" */
#define ERR_GEN_NOMORESEM 0x1004u /* "no more semaphores available" */
#define ERR_GEN_ERRALLOCSEM 0x1005u /* "error allocating semaphore <%s>" */
#define ERR_GEN_ERROPEN 0x1006u /* "error opening <%s>" */
#define ERR_GEN_ERRREAD 0x1007u /* "error reading <%s>" */
#define ERR_GEN_ERRWRITE 0x1008u /* "error writing <%s>" */
#define ERR_GEN_ERRSEEK 0x1009u /* "error seeking in <%s>" */
#define ERR_GEN_ERRCREAT 0x100Au /* "error creating <%s>" */
#define ERR_GEN_ERRBITMAPF 0x100Bu /* "bitmap <%s> is full" */
#define ERR_GEN_ERRSHM 0x100Du /* "error accessing shared memory <%s>" */
#define ERR_GEN_PARAMS 0x100Eu /* "invalid function parameter (<%s>/<%s>)" */
#define ERR_GEN_PATHLEN 0x100Fu /* "path <%s> is too long" */
#define ERR_GEN_NOROOT 0x1010u /* "root directory <%s> was not found" */
#define ERR_GEN_MORINFO 0x1011u /* "For more information, please refer to [%s]" */
#define ERR_GEN_HASHDUP 0x1012u /* "Failed to insert duplicate key into hash table <%s>" */
#define ERR_GEN_GENREM 0x1013u /* "remote error: %s" */
#define ERR_GEN_GENFILE 0x1014u /* "error in file <%s>" */
#define ERR_GEN_NONEWPROC 0x1016u /* "Remote Edge is in Administrative Hold state which prevents it from performing as a Replication / Distribution Edge" */
#define ERR_GEN_ERRSSCANF 0x1017u /* "error parsing <%s>" */
#define ERR_GEN_ERRSRVC 0x1018u /* "error in service <%s>" */
#define ERR_GEN_ERRCSTMSM 0x1019u /* "error in custom message <%s>" */
#define ERR_GEN_ERRGUI 0x101Au /* "user interface error: %s" */
#define ERR_GEN_ERRKTM 0x101Bu /* "task manager error: %s" */
#define ERR_GEN_GENSUPPORT 0x101Cu /* "<%s> is not supported" */
#define ERR_GEN_ERRWRITEBUF 0x101Du /* "error writing to buffer <%s>" */
#define ERR_GEN_ENOUGHMEM 0x101Eu /* "not enough memory (%s)" */
#define ERR_GEN_ERRVAL 0x101Fu /* "invalid value <%s>" */
#define ERR_GEN_ERRENC 0x1020u /* "error encoding <%s>" */
#define ERR_GEN_ERRDEC 0x1021u /* "error decoding <%s>" */
#define ERR_GEN_ERRFLOAD 0x1022u /* "error loading file <%s>" */
#define ERR_GEN_UNSUPSRV 0x1023u /* "server version <%s> is not supported" */
#define ERR_GEN_XML 0x1024u /* "error parsing xml <%s>" */
#define ERR_GEN_NEWCONV 0x1025u /* "failed to convert <%s> to the new format" */
#define ERR_GEN_CONVLOOSE 0x1026u /* "some settings of <%s> were lost in conversion" */
#define ERR_GEN_OLDCONV 0x1027u /* "failed to convert <%s> to the old format" */
#define ERR_GEN_TIMEFRMT 0x1028u /* "invalid time format <%s>" */

/* FIL (0x1700) */
#define ERR_FIL_MEMORY_1701 0x1701u /* "error allocating dynamic memory" */
#define ERR_FIL_INCNSNCY 0x1702u /* "inconsistency detected in files module" */
#define ERR_FIL_NOTACTIVE 0x1703u /* "entry %d is not active" */
#define ERR_FIL_SEEK 0x1704u /* "error positioning file <%s>" */
#define ERR_FIL_EXPAND 0x1705u /* "error expanding <%s> to full path" */
#define ERR_FIL_LINK 0x1706u /* "error creating link <%s>" */
#define ERR_FIL_NFNAM 0x1707u /* "no filespec was specified for search" */
#define ERR_FIL_PARSE 0x1708u /* "error parsing filespec <%s>" */
#define ERR_FIL_OPEN 0x1709u /* "error opening file <%s>" */
#define ERR_FIL_CLOSE 0x170Au /* "error closing file <%s>" */
#define ERR_FIL_DELETE_170B 0x170Bu /* "error deleting file <%s>" */
#define ERR_FIL_RENAME 0x170Cu /* "error renaming file <%s> to <%s>" */
#define ERR_FIL_COPY 0x170Du /* "error copying file <%s> to <%s>" */
#define ERR_FIL_READ 0x170Eu /* "error reading file <%s>" */
#define ERR_FIL_WRITE 0x170Fu /* "error writing file <%s>" */
#define ERR_FIL_CREATE 0x1710u /* "error creating file <%s>" */
#define ERR_FIL_GETINFO 0x1711u /* "error retrieving information on file <%s>" */
#define ERR_FIL_SEARCH_1712 0x1712u /* "error searching for filespec <%s>" */
#define ERR_FIL_SEARCHI 0x1713u /* "search operation initiated" */
#define ERR_FIL_SSEARCH 0x1714u /* "search operation was successful" */
#define ERR_FIL_NMFILES 0x1715u /* "no more files in search stream" */
#define ERR_FIL_DIRACC 0x1716u /* "failed to access directory <%s>" */
#define ERR_FIL_NOFILEFND 0x1717u /* "no files matching filespec <%s> were found" */
#define ERR_FIL_SETOWN 0x1718u /* "error setting ownership on file <%s>" */
#define ERR_FIL_SETPROT 0x1719u /* "error setting protection on file <%s>" */
#define ERR_FIL_SETTIME 0x171Au /* "error updating file <%s> time" */
#define ERR_FIL_FLUSH 0x171Bu /* "error flushing file <%s>" */
#define ERR_FIL_CREFDL 0x171Cu /* "error creating fdl file <%s>" */
#define ERR_FIL_OPENFDL 0x171Du /* "error opening fdl file <%s>" */
#define ERR_FIL_SEAFILOP_171E 0x171Eu /* "failed to open search list file <%s>" */
#define ERR_FIL_SEAFILOP_171F 0x171Fu /* "failed to read search list file <%s>" */
#define ERR_FIL_SETFILAT 0x1720u /* "error changing file <%s> attributes" */
#define ERR_FIL_DELDIR_1721 0x1721u /* "failed to remove directory <%s>" */
#define ERR_FIL_EXSTDIR 0x1722u /* "failed to find directory <%s>, directory does not exist" */
#define ERR_FIL_MAKDIR 0x1723u /* "failed to create directory <%s>" */
#define ERR_FIL_OPENDIR 0x1724u /* "failed to open directory <%s>" */
#define ERR_FIL_GETFILSC 0x1725u /* "failed to get file security <%s>" */
#define ERR_FIL_SETFILSC 0x1726u /* "failed to set file security <%s>" */
#define ERR_FIL_MEMORY_1727 0x1727u /* "invalid argument (NULL ptr) to <%s> fuction" */
#define ERR_FIL_BADPAR 0x1728u /* "bad parameter ( function <%s> , parameter %d )" */
#define ERR_FIL_LOCK 0x1729u /* "failed to lock file <%s>" */
#define ERR_FIL_TRUNC 0x172Au /* "failed to truncate file <%s>" */
#define ERR_FIL_BUF 0x172Bu /* "buffer too short ( function <%s> )" */
#define ERR_FIL_PERM 0x172Cu /* "invalid permission value <%s> (should be 000-777)" */
#define ERR_FIL_DELETELIST 0x172Du /* "error reading file, unknown format <%s>" */
#define ERR_FIL_WINVALID 0x172Eu /* "<%s> is windows invalid file name - cannot contain any of the following characters: \\  /  :  *   ?   \"  <  >  |" */
#define ERR_FIL_VLONGNAME 0x172Fu /* "failed to access file or directory, the path is too long. <%s>" */
#define ERR_FIL_LONGCREATE_1730 0x1730u /* "failed to create file or directory, the path is too long. <%s>" */
#define ERR_FIL_LONGCREATE_1731 0x1731u /* "failed to rename <%s> to <%s>, the path is too long." */
#define ERR_FIL_SEARCH_1732 0x1732u /* "error searching for filespec <%S>" */
#define ERR_FIL_DELDIR_1733 0x1733u /* "failed to remove directory <%S>" */
#define ERR_FIL_NOACCESS 0x1734u /* "Path <%s> exists but cannot be accessed" */
#define ERR_FIL_DELETE_1735 0x1735u /* "File/directory <%s> was not found" */
#define ERR_FIL_DELETE_1736 0x1736u /* "error deleting link <%s>" */
#define ERR_FIL_NRELPATH 0x1737u /* "path <%s> cannot be a relative path - must start with <%s>" */
#define ERR_FIL_CREDIR 0x1738u /* "error creating directory %s" */
#define ERR_FIL_NOTIDEN 0x1739u /* "source file <%s> and target file <%s> are not identical" */
#define ERR_FIL_FILBUS 0x173Au /* "source file <%s> cannot be opened - error copying ADS permissions" */
#define ERR_FIL_GETFILAT 0x173Bu /* "error getting file <%s> attributes" */
#define ERR_FIL_MKDFEX 0x173Cu /* "failed to create directory <%s>. A file with an identical name exists" */
#define ERR_FIL_GETVOLINF 0x173Du /* "failed to get volume information for directory <%s>." */
#define ERR_FIL_NOUNICOD 0x173Eu /* "unsuported unicode file name <%s>." */
#define ERR_FIL_BADLINK 0x173Fu /* "unreadable symbolic link <%s>" */
#define ERR_FIL_GFUDL 0x1740u /* "User Defined List <%s> does not exist" */

/* CRP (0x1800) */
#define ERR_CRP_INTRN 0x1801u /* "internal crypto error (%s)" */
#define ERR_CRP_BAD_CIPHER 0x1802u /* "unknown cipher <%s>" */
#define ERR_CRP_INTMSG 0x1803u /* "%s" */
#define ERR_CRP_NOTLOAD 0x1804u /* "crypto library <%s> is not loaded" */
#define ERR_CRP_ENCFAIL 0x1805u /* "encryption failed" */
#define ERR_CRP_DECFAIL 0x1806u /* "decryption failed" */
#define ERR_CRP_RANDFAIL 0x1807u /* "random number generation failed" */
#define ERR_CRP_DHALLOC 0x1808u /* "failed to allocate diffie-hellman context" */
#define ERR_CRP_BADPAR 0x1809u /* "bad parameter (%s)" */
#define ERR_CRP_DHGEN 0x180Au /* "failed to generate diffie-hellman key" */
#define ERR_CRP_DHP 0x180Bu /* "invalid diffie-hellman prime" */
#define ERR_CRP_DHG 0x180Cu /* "invalid diffie-hellman generator" */
#define ERR_CRP_DHCOMP 0x180Du /* "failed to compute diffie-hellman shared key" */
#define ERR_CRP_SNOTLOAD 0x180Eu /* "ssl library <%s> is not loaded" */
#define ERR_CRP_SSLALLOC 0x180Fu /* "failed to allocate ssl context" */
#define ERR_CRP_SSLINIT 0x1810u /* "failed to initialize ssl" */
#define ERR_CRP_CAPATHF 0x1811u /* "failed to load certificate authority path <%s>" */
#define ERR_CRP_CERT 0x1812u /* "failed to load certificate file <%s>" */
#define ERR_CRP_PKEY 0x1813u /* "failed to load private key file <%s>" */
#define ERR_CRP_CONN 0x1814u /* "ssl connect failed" */
#define ERR_CRP_ACCONN 0x1815u /* "ssl accept failed" */
#define ERR_CRP_SEND 0x1816u /* "ssl send failed" */
#define ERR_CRP_RECV 0x1817u /* "ssl receive failed" */

/* SYS (0x200) */
#define ERR_SYS_ERRMSG 0x203u /* "%s" */
#define ERR_SYS_ERMSG 0x204u /* "%s" */

/* PLXCLN (0x6200) */
#define ERR_PLXCLN_GETJOBR 0x6201u /* "failed to get result of job <%s>" */
#define ERR_PLXCLN_MISPARAM 0x6202u /* "missing parameter <%s>" */
#define ERR_PLXCLN_MISSVR 0x6203u /* "no server was specified" */
#define ERR_PLXCLN_EXECUTE 0x6204u /* "failed to execute request on server <%s>" */
#define ERR_PLXCLN_OBJPROC 0x6205u /* "failed to process object <%s>" */
#define ERR_PLXCLN_NAMEPREF 0x6206u /* "invalid name prefix <%s>" */
#define ERR_PLXCLN_OBJKND 0x6207u /* "unknown object kind <%s>" */
#define ERR_PLXCLN_UNUSED_6 0x6208u /* "" */
#define ERR_PLXCLN_CONEX 0x6209u /* "failed to connect to server <%s>" */
#define ERR_PLXCLN_UL 0x620Au /* "user limit exceeded (%s)" */
#define ERR_PLXCLN_UNUSED_10 0x620Bu /* "" */
#define ERR_PLXCLN_UNUSED_11 0x620Cu /* "" */
#define ERR_PLXCLN_CONTROL 0x620Du /* "control operation <%s> failed" */
#define ERR_PLXCLN_NOKEYPASS 0x620Eu /* "no key password was specified" */
#define ERR_PLXCLN_COMMNAME 0x620Fu /* "common name mismatch: expected <%s>, got <%s>" */
#define ERR_PLXCLN_KEYDEC 0x6210u /* "failed to decrypt key file <%s>" */
#define ERR_PLXCLN_NOSSLFILE 0x6211u /* "ssl file <%s> does not exist" */
#define ERR_PLXCLN_BADCAPATH 0x6212u /* "invalid certificate authority path <%s>" */
#define ERR_PLXCLN_SSLINITFAIL 0x6213u /* "ssl initialization failed" */
#define ERR_PLXCLN_CAFILEISDIR 0x6214u /* "certificate authority file <%s> is a directory" */
#define ERR_PLXCLN_LOCAL 0x6215u /* "local operation failed: %s" */
#define ERR_PLXCLN_NOJOB 0x6216u /* "job <%s> was not found" */
#define ERR_PLXCLN_DPLYMERR 0x6217u /* "deployment error: %s" */
#define ERR_PLXCLN_ERNDPLYU 0x6218u /* "error updating deployment of <%s>" */

/* PLXSVR (0x6600) */
#define ERR_PLXSVR_INVTF 0x6601u /* "invalid transfer <%s>" */
#define ERR_PLXSVR_IMPRTYPE 0x6602u /* "improper type <%s>" */
#define ERR_PLXSVR_MSGKND 0x6603u /* "unknown message kind <%s>" */
#define ERR_PLXSVR_ERR_SEV_F 0x6604u /* "%s" */
#define ERR_PLXSVR_OBJKND 0x6605u /* "unknown object kind <%s>" */
#define ERR_PLXSVR_RLBRUN 0x6606u /* "rollback is already running for job <%s>" */
#define ERR_PLXSVR_TRIGFILE 0x6607u /* "error in trigger file <%s>" */
#define ERR_PLXSVR_RLBONRUN 0x6608u /* "cannot roll back running job <%s>" */
#define ERR_PLXSVR_RLBONINST 0x6609u /* "cannot roll back job <%s> during installation" */
#define ERR_PLXSVR_RLBONRB 0x660Au /* "cannot roll back job <%s> while it is rolling back" */
#define ERR_PLXSVR_RLBNOINF 0x660Bu /* "no rollback information for job <%s>" */
#define ERR_PLXSVR_RLBUDST 0x660Cu /* "rollback failed to update distribution <%s>" */
#define ERR_PLXSVR_RLBURPL 0x660Du /* "rollback failed to update replication <%s>" */
#define ERR_PLXSVR_IMPTYPE 0x660Eu /* "import type <%s> is not supported" */
#define ERR_PLXSVR_INVCON 0x660Fu /* "invalid connection <%s>" */
#define ERR_PLXSVR_PROCESS_STATUS 0x6610u /* "process status: %s" */
#define ERR_PLXSVR_REQVAL 0x6611u /* "required value <%s> is missing" */
#define ERR_PLXSVR_SCONEX 0x6612u /* "server connection error: %s" */
#define ERR_PLXSVR_ANSWR 0x6613u /* "failed to send answer to <%s>" */
#define ERR_PLXSVR_OBJNFND 0x6614u /* "object <%s> was not found" */
#define ERR_PLXSVR_Q7INS 0x6615u /* "installation of <%s> failed" */
#define ERR_PLXSVR_MSGMISMATCH 0x6616u /* "message mismatch: expected <%s>, got <%s>" */
#define ERR_PLXSVR_VUSRCTXT 0x6617u /* "failed to verify user context <%s>" */
#define ERR_PLXSVR_FILE 0x6618u /* "error in file <%s>" */
#define ERR_PLXSVR_HOST 0x6619u /* "invalid host <%s>" */
#define ERR_PLXSVR_STATUS 0x661Au /* "failed to get status of <%s>" */
#define ERR_PLXSVR_FLNM 0x661Bu /* "invalid file name <%s>" */
#define ERR_PLXSVR_USRCTXT 0x661Cu /* "failed to change user context to <%s>" */
#define ERR_PLXSVR_TLSSET 0x661Du /* "failed to set thread local storage" */
#define ERR_PLXSVR_TLSGET 0x661Eu /* "failed to get thread local storage" */
#define ERR_PLXSVR_SVRCON 0x661Fu /* "failed to connect to server <%s>" */
#define ERR_PLXSVR_NOJOB 0x6620u /* "job <%s> was not found" */
#define ERR_PLXSVR_SUBCRD 0x6621u /* "failed to submit credentials of user <%s>" */
#define ERR_PLXSVR_FLIMIT 0x6622u /* "file limit exceeded (%s)" */
#define ERR_PLXSVR_NOSCHED 0x6623u /* "no scheduler is available" */
#define ERR_PLXSVR_NOAPPRV 0x6624u /* "job <%s> is not approved" */
#define ERR_PLXSVR_DETAILS 0x6625u /* "%s" */
#define ERR_PLXSVR_NOAPPRVQ7 0x6626u /* "job <%s> is not approved for this edge" */
#define ERR_PLXSVR_INRULE 0x6627u /* "invalid rule <%s>" */
#define ERR_PLXSVR_ADDGRP 0x6628u /* "failed to add group <%s>" */
#define ERR_PLXSVR_SSL 0x6629u /* "ssl error: %s" */
#define ERR_PLXSVR_INITSTRUCT 0x662Au /* "failed to initialize structure <%s>" */
#define ERR_PLXSVR_NOAPPRVGEN 0x662Bu /* "approval is required: %s" */
#define ERR_PLXSVR_COMMNAME 0x662Cu /* "common name mismatch: expected <%s>, got <%s>" */
#define ERR_PLXSVR_NAMUNDEF 0x662Du /* "name <%s> is undefined" */
#define ERR_PLXSVR_SSLPARAM 0x662Eu /* "invalid ssl parameter <%s>" */
#define ERR_PLXSVR_SSLALLOC 0x662Fu /* "failed to allocate ssl context" */
#define ERR_PLXSVR_SSLINIT 0x6630u /* "failed to initialize ssl" */
#define ERR_PLXSVR_SSLACC 0x6631u /* "ssl accept failed" */
#define ERR_PLXSVR_NOCHILD 0x6632u /* "failed to create child process for <%s>" */
#define ERR_PLXSVR_NOSSLFILE 0x6633u /* "ssl file <%s> does not exist" */
#define ERR_PLXSVR_BADCAPATH 0x6634u /* "invalid certificate authority path <%s>" */
#define ERR_PLXSVR_SSLFILEISDIR 0x6635u /* "ssl file <%s> is a directory" */
#define ERR_PLXSVR_DISTCUMC 0x6636u /* "distribution is not supported for cumulative job <%s>" */
#define ERR_PLXSVR_RLBPLX 0x6637u /* "rollback failed for job <%s>" */
#define ERR_PLXSVR_NOAPRVREM 0x6638u /* "remote job <%s> is not approved" */
#define ERR_PLXSVR_SUL 0x6639u /* "server user limit exceeded (%s)" */
#define ERR_PLXSVR_GETUSRGRP 0x663Au /* "error getting groups of user <%s>" */
#define ERR_PLXSVR_SRVINVCMD 0x663Bu /* "invalid server command <%s>" */
#define ERR_PLXSVR_SRVPOSTUP 0x663Cu /* "server post-update failed (%s)" */
#define ERR_PLXSVR_SRVINIT 0x663Du /* "server initialization failed" */
#define ERR_PLXSVR_SRVTREE 0x663Eu /* "failed to build server tree <%s>" */
#define ERR_PLXSVR_SRVLOAD 0x663Fu /* "failed to load server module <%s>" */
#define ERR_PLXSVR_SRVVER 0x6640u /* "server version <%s> is not supported" */
#define ERR_PLXSVR_SRVDRV 0x6641u /* "failed to get server drives" */
#define ERR_PLXSVR_SRVEXEC 0x6642u /* "server failed to execute <%s>" */
#define ERR_PLXSVR_SRVSUPCMB 0x6643u /* "combination <%s> is not supported by the server" */
#define ERR_PLXSVR_SRVVALCMB 0x6644u /* "invalid combination <%s>" */
#define ERR_PLXSVR_SRVCFRM 0x6645u /* "server confirmation failed for <%s>" */
#define ERR_PLXSVR_OLDCLIENT 0x6646u /* "client version <%s> is too old" */
#define ERR_PLXSVR_RETRCFRM 0x6647u /* "failed to retrieve confirmation of <%s>" */
#define ERR_PLXSVR_CNFRMACT 0x6648u /* "failed to confirm action <%s>" */
#define ERR_PLXSVR_SATACTION 0x6649u /* "satellite action <%s> failed" */
#define ERR_PLXSVR_IISGET 0x664Au /* "failed to get iis information <%s>" */
#define ERR_PLXSVR_IISINFO 0x664Bu /* "iis information: %s" */
#define ERR_PLXSVR_IISVALID 0x664Cu /* "iis validation failed for <%s>" */
#define ERR_PLXSVR_INVTIME 0x664Du /* "invalid time <%s>" */
#define ERR_PLXSVR_ADDJOB 0x664Eu /* "failed to add job <%s>" */
#define ERR_PLXSVR_UNSUPIMG 0x664Fu /* "image <%s> is not supported" */
#define ERR_PLXSVR_SRVGEN 0x6650u /* "%s" */
#define ERR_PLXSVR_CUPSL 0x6651u /* "error updating server list <%s>" */

/* ACTIVE_SCAN (0x6800) */
#define ERR_ACTIVE_SCAN_RDFLD 0x6801u /* "error reading field <%s>" */
#define ERR_ACTIVE_SCAN_WRFLD 0x6802u /* "error writing field <%s>" */
#define ERR_ACTIVE_SCAN_FLNAME 0x6803u /* "invalid file name <%s>" */
#define ERR_ACTIVE_SCAN_MEMORY 0x6804u /* "out of memory (%s)" */
#define ERR_ACTIVE_SCAN_MVARC 0x6805u /* "error moving <%s> to archive" */
#define ERR_ACTIVE_SCAN_KILPS 0x6806u /* "error killing process <%s>" */
#define ERR_ACTIVE_SCAN_RMFIL 0x6807u /* "error removing file <%s>" */
#define ERR_ACTIVE_SCAN_ALLOCH 0x6808u /* "error allocating handle" */
#define ERR_ACTIVE_SCAN_PSEXIT 0x6809u /* "process <%s> exited unexpectedly" */
#define ERR_ACTIVE_SCAN_LISTITM 0x680Au /* "error listing item <%s>" */
#define ERR_ACTIVE_SCAN_DELISTI 0x680Bu /* "error removing item <%s> from list" */
#define ERR_ACTIVE_SCAN_WTHLE 0x680Cu /* "error writing handle to <%s>" */
#define ERR_ACTIVE_SCAN_FREEHLE 0x680Du /* "error freeing handle" */
#define ERR_ACTIVE_SCAN_RDHLE 0x680Eu /* "error reading handle from <%s>" */
#define ERR_ACTIVE_SCAN_SETCOM 0x680Fu /* "error setting comment <%s>" */
#define ERR_ACTIVE_SCAN_GETCOM 0x6810u /* "error getting comment <%s>" */
#define ERR_ACTIVE_SCAN_HDCODE 0x6811u /* "invalid handle code <%s>" */

/* TO_ARCHIVE (0x6A00) */
#define ERR_TO_ARCHIVE_FLENM 0x6A01u /* "invalid file name <%s>" */
#define ERR_TO_ARCHIVE_MEMORY 0x6A02u /* "out of memory (%s)" */
#define ERR_TO_ARCHIVE_MVDIR 0x6A03u /* "error moving directory <%s> to <%s>" */
#define ERR_TO_ARCHIVE_CTXT 0x6A04u /* "error changing context to user <%s>" */
#define ERR_TO_ARCHIVE_RDFLD 0x6A05u /* "error reading field <%s>" */

/* TO_ACTIVE (0x6C00) */
#define ERR_TO_ACTIVE_RDFL 0x6C01u /* "error reading file <%s>" */
#define ERR_TO_ACTIVE_UPDFL 0x6C02u /* "error updating file <%s>" */
#define ERR_TO_ACTIVE_RTFN 0x6C03u /* "error retrieving file name <%s>" */
#define ERR_TO_ACTIVE_FFU1 0x6C04u /* "error finding first unused name for <%s>" */
#define ERR_TO_ACTIVE_MKDIR 0x6C05u /* "error creating directory <%s>" */
#define ERR_TO_ACTIVE_MOVE 0x6C06u /* "error moving <%s> to <%s>" */
#define ERR_TO_ACTIVE_INSEA 0x6C07u /* "error initializing search <%s>" */
#define ERR_TO_ACTIVE_MKSON 0x6C08u /* "error creating sub directory <%s>" */
#define ERR_TO_ACTIVE_COPY 0x6C09u /* "error copying <%s> to <%s>" */
#define ERR_TO_ACTIVE_SUBMIT 0x6C0Au /* "error submitting <%s>" */
#define ERR_TO_ACTIVE_ALHDLE 0x6C0Bu /* "error allocating handle" */
#define ERR_TO_ACTIVE_WTHDLE 0x6C0Cu /* "error writing handle to <%s>" */
#define ERR_TO_ACTIVE_FRHDLE 0x6C0Du /* "error freeing handle" */
#define ERR_TO_ACTIVE_RDHDLE 0x6C0Eu /* "error reading handle from <%s>" */
#define ERR_TO_ACTIVE_SETTB 0x6C0Fu /* "error setting table <%s>" */
#define ERR_TO_ACTIVE_CTXT 0x6C10u /* "error changing context to user <%s>" */

/* SUBMIT (0x7200) */
#define ERR_SUBMIT_MEMORY 0x7201u /* "out of memory (%s)" */
#define ERR_SUBMIT_RESUBSTAT 0x7202u /* "error resubmitting job <%s>" */
#define ERR_SUBMIT_ALLOCHDE 0x7203u /* "error allocating handle" */
#define ERR_SUBMIT_SETBL 0x7204u /* "error setting table <%s>" */
#define ERR_SUBMIT_CNFRD 0x7205u /* "error reading configuration <%s>" */
#define ERR_SUBMIT_CNFWRT 0x7206u /* "error writing configuration <%s>" */
#define ERR_SUBMIT_CNFFRE 0x7207u /* "error freeing configuration" */
#define ERR_SUBMIT_FLDRD 0x7208u /* "error reading field <%s>" */
#define ERR_SUBMIT_FLDUPD 0x7209u /* "error updating field <%s>" */
#define ERR_SUBMIT_PARAM 0x720Au /* "invalid parameter <%s>" */
#define ERR_SUBMIT_FILENM 0x720Bu /* "invalid file name <%s>" */
#define ERR_SUBMIT_MKDIR 0x720Cu /* "error creating directory <%s>" */
#define ERR_SUBMIT_MOVE 0x720Du /* "error moving <%s> to <%s>" */
#define ERR_SUBMIT_CREA 0x720Eu /* "error creating <%s>" */
#define ERR_SUBMIT_SUBFAIL 0x720Fu /* "submission of <%s> failed" */
#define ERR_SUBMIT_OWPROP 0x7210u /* "error setting owner property on <%s>" */
#define ERR_SUBMIT_USER 0x7211u /* "invalid user <%s>" */
#define ERR_SUBMIT_HOST 0x7212u /* "invalid host <%s>" */
#define ERR_SUBMIT_GETDIR 0x7213u /* "error getting directory <%s>" */
#define ERR_SUBMIT_SEARCH 0x7214u /* "error searching for <%s>" */
#define ERR_SUBMIT_UNQNAM 0x7215u /* "error generating unique name for <%s>" */
#define ERR_SUBMIT_CTXCHG 0x7216u /* "error changing context to user <%s>" */
#define ERR_SUBMIT_REVERT 0x7217u /* "error reverting user context" */
#define ERR_SUBMIT_SBM 0x7218u /* "error submitting job <%s>" */
#define ERR_SUBMIT_CRECHD 0x7219u /* "error creating child directory <%s>" */
#define ERR_SUBMIT_BADCRD 0x721Au /* "bad credentials for user <%s>" */
#define ERR_SUBMIT_RMDIR 0x721Bu /* "error removing directory <%s>" */
#define ERR_SUBMIT_DAILY 0x721Cu /* "error in daily job <%s>" */

/* ARCHIVE_SERVER (0x7400) */
#define ERR_ARCHIVE_SERVER_ALOCHDE 0x7401u /* "error allocating handle" */
#define ERR_ARCHIVE_SERVER_SETBL 0x7402u /* "error setting table <%s>" */
#define ERR_ARCHIVE_SERVER_RDFL 0x7403u /* "error reading file <%s>" */
#define ERR_ARCHIVE_SERVER_WTFL 0x7404u /* "error writing file <%s>" */
#define ERR_ARCHIVE_SERVER_FREHDE 0x7405u /* "error freeing handle" */
#define ERR_ARCHIVE_SERVER_RDFLD 0x7406u /* "error reading field <%s>" */
#define ERR_ARCHIVE_SERVER_FLNM 0x7407u /* "invalid file name <%s>" */
#define ERR_ARCHIVE_SERVER_INISCH 0x7408u /* "error initializing search <%s>" */
#define ERR_ARCHIVE_SERVER_UNQID 0x7409u /* "error generating unique id" */
#define ERR_ARCHIVE_SERVER_GFLNM 0x740Au /* "error getting file name <%s>" */
#define ERR_ARCHIVE_SERVER_GETCOM 0x740Bu /* "error getting comment <%s>" */
#define ERR_ARCHIVE_SERVER_SETCOM 0x740Cu /* "error setting comment <%s>" */
#define ERR_ARCHIVE_SERVER_DELJOB 0x740Du /* "error deleting job <%s>" */

/* SCHED_GENERAL (0x7C00) */
#define ERR_SCHED_GENERAL_RMFILE 0x7C01u /* "error removing file <%s>" */
#define ERR_SCHED_GENERAL_INISCH 0x7C02u /* "error initializing search <%s>" */
#define ERR_SCHED_GENERAL_RDFLD 0x7C03u /* "error reading field <%s>" */
#define ERR_SCHED_GENERAL_WRFLD 0x7C04u /* "error writing field <%s>" */
#define ERR_SCHED_GENERAL_FLNM 0x7C05u /* "invalid file name <%s>" */
#define ERR_SCHED_GENERAL_MEMORY 0x7C06u /* "out of memory (%s)" */
#define ERR_SCHED_GENERAL_ALCHDE 0x7C07u /* "error allocating handle" */
#define ERR_SCHED_GENERAL_SETBL 0x7C08u /* "error setting table <%s>" */
#define ERR_SCHED_GENERAL_RDFL 0x7C09u /* "error reading file <%s>" */
#define ERR_SCHED_GENERAL_FREEHDE 0x7C0Au /* "error freeing handle" */

/* CNF (0x8200) */
#define ERR_CNF_NOTFOUND 0x8201u /* "Failed to retrieve convertion table entry. The entry <%s> does not exist" */
#define ERR_CNF_FILE_8202 0x8202u /* "error opening configuration file <%s>" */
#define ERR_CNF_FILE_8203 0x8203u /* "error reading configuration file <%s>" */
#define ERR_CNF_FILE_8204 0x8204u /* "error writing configuration file" */
#define ERR_CNF_ENCRYPT 0x8205u /* "encryption failed on <%s>" */
#define ERR_CNF_CONVTABL 0x8206u /* "failed to retrieve convertion table" */
#define ERR_CNF_VALUE 0x8207u /* "illegal value: field <%s>  value <%s>" */
#define ERR_CNF_TYPE 0x8208u /* "field type mismatch for const <%d> (not %s)." */
#define ERR_CNF_GENERAL 0x8209u /* "%s %s" */
#define ERR_CNF_SECTION 0x820Au /* "did not find section <%s>." */
#define ERR_CNF_READ 0x820Bu /* "failed to read field <%s>." */
#define ERR_CNF_WRITE 0x820Cu /* "failed to write field <%s>." */
#define ERR_CNF_FIND_820D 0x820Du /* "configuration module mismatch fields. could not retrieve field constant <%d>." */
#define ERR_CNF_FIND_820E 0x820Eu /* "did not find field by section <%s>." */
#define ERR_CNF_FIND_820F 0x820Fu /* "did not find field by name <%s>." */
#define ERR_CNF_COMP 0x8210u /* "configuration files mismatch fields : 1st - <%s> , in the 2nd - <%s>." */
#define ERR_CNF_EMPTY 0x8211u /* "configuration files is empty or currupted." */
#define ERR_CNF_COPYCST 0x8212u /* "Failed to copy between the configuration handles, from consts <%d> to <%d>" */
#define ERR_CNF_ACCESS 0x8213u /* "access field <%s> is denied." */

/* PLXAPI (0x8300) */
#define ERR_PLXAPI_CLE 0x8301u /* "command line error: %s" */
#define ERR_PLXAPI_STREAM 0x8302u /* "error opening stream <%s>" */
#define ERR_PLXAPI_PERM 0x8303u /* "permission denied for <%s>" */
#define ERR_PLXAPI_PURAGE 0x8304u /* "invalid purge age <%s>" */
#define ERR_PLXAPI_STRUN 0x8305u /* "job <%s> is still running" */
#define ERR_PLXAPI_PRIO 0x8306u /* "invalid priority <%s>" */
#define ERR_PLXAPI_CON 0x8307u /* "failed to connect to <%s>" */
#define ERR_PLXAPI_UPL 0x8308u /* "failed to upload <%s>" */
#define ERR_PLXAPI_EDLEM 0x8309u /* "edge list is empty" */
#define ERR_PLXAPI_SATNA 0x830Au /* "satellite <%s> is not available" */
#define ERR_PLXAPI_UPDIR 0x830Bu /* "error updating directory <%s>" */
#define ERR_PLXAPI_TRGNAS 0x830Cu /* "target <%s> is not allowed" */
#define ERR_PLXAPI_UNS 0x830Du /* "user name was not specified" */
#define ERR_PLXAPI_PNS 0x830Eu /* "password was not specified" */
#define ERR_PLXAPI_SDNS 0x830Fu /* "source directory was not specified" */
#define ERR_PLXAPI_TDNS 0x8310u /* "target directory was not specified" */
#define ERR_PLXAPI_NOSNAS 0x8311u /* "a source is not allowed in this command" */
#define ERR_PLXAPI_SRCD 0x8312u /* "invalid source directory <%s>" */
#define ERR_PLXAPI_NOTNAS 0x8313u /* "a target is not allowed in this command" */
#define ERR_PLXAPI_TRGD 0x8314u /* "invalid target directory <%s>" */
#define ERR_PLXAPI_SRCNAS 0x8315u /* "source <%s> is not allowed" */
#define ERR_PLXAPI_DMS 0x8316u /* "invalid distribution mode <%s>" */
#define ERR_PLXAPI_RECI 0x8317u /* "invalid recursion value <%s>" */
#define ERR_PLXAPI_UAI 0x8318u /* "invalid user account <%s>" */
#define ERR_PLXAPI_IREPI 0x8319u /* "invalid replication interval <%s>" */
#define ERR_PLXAPI_EPPI 0x831Au /* "invalid post-processing command <%s>" */
#define ERR_PLXAPI_ARCMAX 0x831Bu /* "maximum number of archives exceeded (%s)" */
#define ERR_PLXAPI_STFNS 0x831Cu /* "start time was not specified" */
#define ERR_PLXAPI_STFI 0x831Du /* "invalid start time <%s>" */
#define ERR_PLXAPI_WEI 0x831Eu /* "invalid weekday <%s>" */
#define ERR_PLXAPI_TFI 0x831Fu /* "invalid time frame <%s>" */
#define ERR_PLXAPI_WENS 0x8320u /* "weekday was not specified" */
#define ERR_PLXAPI_TFNS 0x8321u /* "time frame was not specified" */
#define ERR_PLXAPI_OTI 0x8322u /* "invalid occurrence type <%s>" */
#define ERR_PLXAPI_OTNS 0x8323u /* "occurrence type was not specified" */
#define ERR_PLXAPI_GENNS 0x8324u /* "%s was not specified" */
#define ERR_PLXAPI_EVI 0x8325u /* "invalid event <%s>" */
#define ERR_PLXAPI_EVNS 0x8326u /* "event was not specified" */
#define ERR_PLXAPI_RBWOLOC 0x8327u /* "rollback without a location is not allowed" */
#define ERR_PLXAPI_DAV 0x8328u /* "invalid day value <%s>" */
#define ERR_PLXAPI_GETVAL 0x8329u /* "error getting value <%s>" */
#define ERR_PLXAPI_SETVAL 0x832Au /* "error setting value <%s>" */
#define ERR_PLXAPI_WRTXML 0x832Bu /* "error writing xml <%s>" */
#define ERR_PLXAPI_HNS 0x832Cu /* "host name was not specified" */
#define ERR_PLXAPI_SETERR 0x832Du /* "error setting <%s>" */
#define ERR_PLXAPI_RGE 0x832Eu /* "value <%s> is out of range" */
#define ERR_PLXAPI_IMPJOBT 0x832Fu /* "error importing job template <%s>" */
#define ERR_PLXAPI_UNSUPJT 0x8330u /* "job type <%s> is not supported" */
#define ERR_PLXAPI_JOBINFO 0x8331u /* "error getting information of job <%s>" */
#define ERR_PLXAPI_SCJF 0x8332u /* "error scheduling job from file <%s>" */
#define ERR_PLXAPI_RUNOPT 0x8333u /* "invalid run option <%s>" */
#define ERR_PLXAPI_SCHKILL 0x8334u /* "error killing scheduler" */
#define ERR_PLXAPI_SCHPID 0x8335u /* "error getting scheduler process id" */
#define ERR_PLXAPI_SCHSUBDN 0x8336u /* "scheduler submit daemon is down" */
#define ERR_PLXAPI_SCHACTDN 0x8337u /* "scheduler active daemon is down" */
#define ERR_PLXAPI_SCHARCDN 0x8338u /* "scheduler archive daemon is down" */
#define ERR_PLXAPI_SCHPRCDN 0x8339u /* "scheduler process daemon is down" */
#define ERR_PLXAPI_SCHAPIDN 0x833Au /* "scheduler api daemon is down" */
#define ERR_PLXAPI_SBMTDMND 0x833Bu /* "submit on demand failed for <%s>" */
#define ERR_PLXAPI_SUSD 0x833Cu /* "error starting scheduler daemon" */
#define ERR_PLXAPI_ESD 0x833Du /* "error stopping scheduler daemon" */
#define ERR_PLXAPI_GDF 0x833Eu /* "error getting default file <%s>" */
#define ERR_PLXAPI_GTF 0x833Fu /* "error getting template file <%s>" */
#define ERR_PLXAPI_SJ 0x8340u /* "error submitting job <%s>" */
#define ERR_PLXAPI_RESJ 0x8341u /* "error resubmitting job <%s>" */
#define ERR_PLXAPI_UPJ 0x8342u /* "error updating job <%s>" */
#define ERR_PLXAPI_HJ 0x8343u /* "error holding job <%s>" */
#define ERR_PLXAPI_RJ 0x8344u /* "error releasing job <%s>" */
#define ERR_PLXAPI_AJ 0x8345u /* "error aborting job <%s>" */
#define ERR_PLXAPI_DJ 0x8346u /* "error deleting job <%s>" */
#define ERR_PLXAPI_PJ 0x8347u /* "error purging job <%s>" */
#define ERR_PLXAPI_TIMEVL 0x8348u /* "invalid time value <%s>" */
#define ERR_PLXAPI_ERNS 0x8349u /* "edge name was not specified" */
#define ERR_PLXAPI_SHS 0x834Au /* "error showing server <%s>" */
#define ERR_PLXAPI_SHO 0x834Bu /* "error showing object <%s>" */
#define ERR_PLXAPI_SETS 0x834Cu /* "error setting server <%s>" */
#define ERR_PLXAPI_SUS 0x834Du /* "error suspending server <%s>" */
#define ERR_PLXAPI_RS 0x834Eu /* "error resuming server <%s>" */
#define ERR_PLXAPI_US 0x834Fu /* "error updating server <%s>" */
#define ERR_PLXAPI_CS 0x8350u /* "error creating server <%s>" */
#define ERR_PLXAPI_HJS 0x8351u /* "error holding jobs on server <%s>" */
#define ERR_PLXAPI_RJS 0x8352u /* "error releasing jobs on server <%s>" */
#define ERR_PLXAPI_AJS 0x8353u /* "error aborting jobs on server <%s>" */
#define ERR_PLXAPI_DJS 0x8354u /* "error deleting jobs on server <%s>" */
#define ERR_PLXAPI_PJS 0x8355u /* "error purging jobs on server <%s>" */
#define ERR_PLXAPI_SWWOS 0x8356u /* "a schedule without a server is not allowed" */
#define ERR_PLXAPI_ERNRFL 0x8357u /* "error reading file list <%s>" */
#define ERR_PLXAPI_ERNTFL 0x8358u /* "error reading target file list <%s>" */
#define ERR_PLXAPI_ERNDFL 0x8359u /* "error reading distribution file list <%s>" */
#define ERR_PLXAPI_ERNACFL 0x835Au /* "error reading access control file list <%s>" */
#define ERR_PLXAPI_DEC 0x835Bu /* "error decrypting <%s>" */
#define ERR_PLXAPI_SSE 0x835Cu /* "server side error: %s" */
#define ERR_PLXAPI_AFT 0x835Du /* "invalid after time <%s>" */
#define ERR_PLXAPI_NOJOB 0x835Eu /* "job <%s> was not found" */
#define ERR_PLXAPI_NOIOT 0x835Fu /* "no input or output type was specified" */
#define ERR_PLXAPI_CNFS 0x8360u /* "job <%s> was confirmed successfully" */
#define ERR_PLXAPI_NOJOE 0x8361u /* "no job entry for <%s>" */
#define ERR_PLXAPI_CUFR 0x8362u /* "error reading custom file <%s>" */
#define ERR_PLXAPI_CUFD 0x8363u /* "error deleting custom file <%s>" */
#define ERR_PLXAPI_FILTCONV 0x8364u /* "error converting filter <%s>" */
#define ERR_PLXAPI_SESALLOC 0x8365u /* "error allocating session" */
#define ERR_PLXAPI_SESFREE 0x8366u /* "error freeing session" */
#define ERR_PLXAPI_SESSET 0x8367u /* "error setting session <%s>" */
#define ERR_PLXAPI_DISCON 0x8368u /* "error disconnecting from <%s>" */
#define ERR_PLXAPI_ISCONNECT 0x8369u /* "error checking connection to <%s>" */
#define ERR_PLXAPI_NDPLYUP 0x836Au /* "error deploying update package <%s>" */
#define ERR_PLXAPI_NDPLYUQ 0x836Bu /* "error deploying update query <%s>" */
#define ERR_PLXAPI_IJ 0x836Cu /* "invalid job <%s>" */
#define ERR_PLXAPI_PRVS 0x836Du /* "preview of job <%s> completed successfully" */
#define ERR_PLXAPI_PRVE 0x836Eu /* "error previewing job <%s>" */
#define ERR_PLXAPI_CNFE 0x836Fu /* "error confirming job <%s>" */
#define ERR_PLXAPI_NOOUTPUT 0x8370u /* "no output was received for <%s>" */
#define ERR_PLXAPI_DUF 0x8371u /* "distribution update of <%s> failed" */
#define ERR_PLXAPI_DUS 0x8372u /* "distribution update of <%s> completed successfully" */
#define ERR_PLXAPI_DAILYS 0x8373u /* "daily job <%s> was scheduled successfully" */
#define ERR_PLXAPI_UNSUPOPT 0x8374u /* "option <%s> is not supported" */
#define ERR_PLXAPI_UNSUPQ7OPT 0x8375u /* "option <%s> is not supported for this edge" */

/* NET (0x1E00) */
#define ERR_NET_BADPTR 0x1E01u /* "invalid argument" */
#define ERR_NET_BADSESS 0x1E02u /* "invalid session argument" */
#define ERR_NET_BADPROT 0x1E03u /* "invalid protocol argument" */
#define ERR_NET_MALLOC 0x1E04u /* "error allocating dynamic memory" */
#define ERR_NET_BADINFO 0x1E05u /* "invalid information type argument" */
#define ERR_NET_BADIO 0x1E06u /* "invalid I/O type argument" */
#define ERR_NET_NOHOST 0x1E07u /* "no remote host specified" */
#define ERR_NET_RESHOST 0x1E08u /* "failed to resolve hostname <%s>" */
#define ERR_NET_NOSERVICE 0x1E09u /* "no service or port specified" */
#define ERR_NET_CRESOCK 0x1E0Au /* "failed to create network socket" */
#define ERR_NET_SERUNK 0x1E0Bu /* "could not resolve port setting for service <%s>" */
#define ERR_NET_CONNF 0x1E0Cu /* "network connection error" */
#define ERR_NET_SEND 0x1E0Du /* "network send error" */
#define ERR_NET_NOTACT 0x1E0Eu /* "session is not yet active" */
#define ERR_NET_RECV 0x1E0Fu /* "network recv error" */
#define ERR_NET_BIND 0x1E10u /* "network bind error" */
#define ERR_NET_LISTEN 0x1E11u /* "network listen error" */
#define ERR_NET_ACCEPT 0x1E12u /* "network accept error" */
#define ERR_NET_INCNST 0x1E13u /* "inconsistent behaviour of network module" */
#define ERR_NET_SELECT 0x1E14u /* "select operation error" */
#define ERR_NET_INVHC 0x1E15u /* "hook code %d is invalid" */
#define ERR_NET_HELD 0x1E16u /* "session's stream is held by %s and cannot be handed to another process" */

/* SCD_8500 (0x8500) */
#define ERR_SCD_8500_PARAM 0x8501u /* "invalid parameter <%s>" */
#define ERR_SCD_8500_COMMES 0x8502u /* "error in communication message <%s>" */
#define ERR_SCD_8500_COMMER 0x8503u /* "communication error with server <%s>" */
#define ERR_SCD_8500_SUBMIT 0x8504u /* "error submitting job <%s>" */
#define ERR_SCD_8500_INITBUF 0x8505u /* "error initializing buffer" */
#define ERR_SCD_8500_INSFLD 0x8506u /* "error inserting field <%s>" */
#define ERR_SCD_8500_CLNC 0x8507u /* "client connection error <%s>" */
#define ERR_SCD_8500_SETP 0x8508u /* "error setting parameter <%s>" */
#define ERR_SCD_8500_WRCH 0x8509u /* "error writing to channel <%s>" */
#define ERR_SCD_8500_LSCH 0x850Au /* "error listing schedules <%s>" */
#define ERR_SCD_8500_SERVERER 0x850Bu /* "server error: %s" */
#define ERR_SCD_8500_UNKSVRER 0x850Cu /* "unknown server error" */
#define ERR_SCD_8500_CONTROL 0x850Du /* "control operation <%s> failed" */
#define ERR_SCD_8500_UNEXP 0x850Eu /* "unexpected error: %s" */
#define ERR_SCD_8500_MALLOC 0x850Fu /* "error allocating dynamic memory" */
#define ERR_SCD_8500_GETUSRGRP 0x8510u /* "error getting groups of user <%s>" */
#define ERR_SCD_8500_OPUNSP 0x8511u /* "operation <%s> is not supported" */

/* SCD_8600 (0x8600) */
#define ERR_SCD_8600_ALCHLE 0x8601u /* "error allocating handle" */
#define ERR_SCD_8600_RDBHLE 0x8602u /* "error reading buffer into handle" */
#define ERR_SCD_8600_ITSEC 0x8603u /* "error initializing section search <%s>" */
#define ERR_SCD_8600_NSEC 0x8604u /* "error getting next section" */
#define ERR_SCD_8600_STTBLE 0x8605u /* "error setting table <%s>" */
#define ERR_SCD_8600_STSCN 0x8606u /* "error setting section <%s>" */
#define ERR_SCD_8600_GTFLD 0x8607u /* "error getting field <%s>" */
#define ERR_SCD_8600_UVAL 0x8608u /* "unknown value <%s>" */
#define ERR_SCD_8600_STFLD 0x8609u /* "error setting field <%s>" */
#define ERR_SCD_8600_WTHLE 0x860Au /* "error writing handle to <%s>" */
#define ERR_SCD_8600_FRHLE 0x860Bu /* "error freeing handle" */
#define ERR_SCD_8600_WRHLE 0x860Cu /* "error writing handle to buffer" */
#define ERR_SCD_8600_DRNM 0x860Du /* "invalid directory name <%s>" */
#define ERR_SCD_8600_NOJOB 0x860Eu /* "job <%s> was not found" */
#define ERR_SCD_8600_NOTSUP 0x860Fu /* "operation <%s> is not supported" */
#define ERR_SCD_8600_SEC 0x8610u /* "security violation: %s" */
#define ERR_SCD_8600_NOGRP 0x8611u /* "group <%s> was not found" */
#define ERR_SCD_8600_INVCMD 0x8612u /* "invalid command <%s>" */
#define ERR_SCD_8600_DPEND 0x8613u /* "dependent job <%s> has not ended" */
#define ERR_SCD_8600_INVTIME 0x8614u /* "invalid time <%s>" */

/* SM_UTILS (0x8700) */
#define ERR_SM_UTILS_COF 0x8701u /* "error opening configuration file <%s>" */
#define ERR_SM_UTILS_MALLOC 0x8702u /* "error allocating dynamic memory" */
#define ERR_SM_UTILS_REALLOC 0x8703u /* "error reallocating dynamic memory" */
#define ERR_SM_UTILS_SETSEST 0x8704u /* "error setting state of section <%s>" */
#define ERR_SM_UTILS_GETSEST 0x8705u /* "error getting state of section <%s>" */
#define ERR_SM_UTILS_ALHENDL 0x8706u /* "error allocating configuration handle" */
#define ERR_SM_UTILS_SETABL 0x8707u /* "error setting configuration table" */
#define ERR_SM_UTILS_REFILHA 0x8708u /* "error reading file <%s> into handle" */
#define ERR_SM_UTILS_GESFBYC 0x8709u /* "error getting string field by constant <%d>" */
#define ERR_SM_UTILS_SESFBYC 0x870Au /* "error setting string field by constant <%d>" */
#define ERR_SM_UTILS_GESFBYS 0x870Bu /* "error getting string field <%s>" */
#define ERR_SM_UTILS_SESFBYS 0x870Cu /* "error setting string field <%s>" */
#define ERR_SM_UTILS_GESBOYS 0x870Du /* "error getting boolean field <%s>" */
#define ERR_SM_UTILS_SESBOYS 0x870Eu /* "error setting boolean field <%s>" */
#define ERR_SM_UTILS_SETSEC 0x870Fu /* "error setting security on <%s>" */
#define ERR_SM_UTILS_ILESENA 0x8710u /* "illegal service name <%s>" */
#define ERR_SM_UTILS_INSECX 0x8711u /* "error inserting section <%s>" */
#define ERR_SM_UTILS_REMSEC 0x8712u /* "error removing section <%s>" */
#define ERR_SM_UTILS_ILACT 0x8713u /* "illegal action <%s>" */
#define ERR_SM_UTILS_DRIEXST 0x8714u /* "directory <%s> already exists" */
#define ERR_SM_UTILS_DRDNTEX 0x8715u /* "directory <%s> does not exist" */

/* EM_UTILS (0x8800) */
#define ERR_EM_UTILS_COF 0x8801u /* "error opening configuration file <%s>" */
#define ERR_EM_UTILS_MALLOC 0x8802u /* "error allocating dynamic memory" */
#define ERR_EM_UTILS_REALLOC 0x8803u /* "error reallocating dynamic memory" */
#define ERR_EM_UTILS_STRDUP 0x8804u /* "error duplicating string" */
#define ERR_EM_UTILS_SETSEST 0x8805u /* "error setting state of section <%s>" */
#define ERR_EM_UTILS_GETSEST 0x8806u /* "error getting state of section <%s>" */
#define ERR_EM_UTILS_ALHENDL 0x8807u /* "error allocating configuration handle" */
#define ERR_EM_UTILS_SETABL 0x8808u /* "error setting configuration table" */
#define ERR_EM_UTILS_REFILHA 0x8809u /* "error reading file <%s> into handle" */
#define ERR_EM_UTILS_GESFBYC 0x880Au /* "error getting string field by constant <%d>" */
#define ERR_EM_UTILS_SESFBYC 0x880Bu /* "error setting string field by constant <%d>" */
#define ERR_EM_UTILS_GESMLTV 0x880Cu /* "error getting multi-line value of field <%s>" */
#define ERR_EM_UTILS_SESMLTV 0x880Du /* "error setting multi-line value of field <%s>" */
#define ERR_EM_UTILS_GEMLITV 0x880Eu /* "error getting multi-line item of field <%s>" */
#define ERR_EM_UTILS_SEMLITV 0x880Fu /* "error setting multi-line item of field <%s>" */
#define ERR_EM_UTILS_GEBFBYC 0x8810u /* "error getting boolean field by constant <%d>" */
#define ERR_EM_UTILS_SEBFBYC 0x8811u /* "error setting boolean field by constant <%d>" */
#define ERR_EM_UTILS_GESFBYS 0x8812u /* "error getting string field <%s>" */
#define ERR_EM_UTILS_SESFBYS 0x8813u /* "error setting string field <%s>" */
#define ERR_EM_UTILS_GESBOYS 0x8814u /* "error getting boolean field <%s>" */
#define ERR_EM_UTILS_SESBOYS 0x8815u /* "error setting boolean field <%s>" */
#define ERR_EM_UTILS_SETSEC 0x8816u /* "error setting security on <%s>" */
#define ERR_EM_UTILS_ILESENA 0x8817u /* "illegal service name <%s>" */
#define ERR_EM_UTILS_INSECX 0x8818u /* "error inserting section <%s>" */
#define ERR_EM_UTILS_REMSEC 0x8819u /* "error removing section <%s>" */
#define ERR_EM_UTILS_ILACT 0x881Au /* "illegal action <%s>" */
#define ERR_EM_UTILS_DRIEXST 0x881Bu /* "directory <%s> already exists" */
#define ERR_EM_UTILS_DRDNTEX 0x881Cu /* "directory <%s> does not exist" */
#define ERR_EM_UTILS_CFWRT 0x881Du /* "error writing configuration file <%s>" */
#define ERR_EM_UTILS_STRCF 0x881Eu /* "error storing configuration file <%s>" */
#define ERR_EM_UTILS_GINCOF 0x881Fu /* "error getting included configuration file <%s>" */
#define ERR_EM_UTILS_DELF 0x8820u /* "error deleting file <%s>" */
#define ERR_EM_UTILS_CHCLI 0x8821u /* "error checking client <%s>" */
#define ERR_EM_UTILS_GWIND 0x8822u /* "error getting windows directory" */
#define ERR_EM_UTILS_VQSCD 0x8823u /* "error getting scheduler directory" */
#define ERR_EM_UTILS_RGKEY 0x8824u /* "error reading registry key <%s>" */
#define ERR_EM_UTILS_GSERN 0x8825u /* "error getting service name" */
#define ERR_EM_UTILS_GSERST 0x8826u /* "error getting status of service <%s>" */
#define ERR_EM_UTILS_SSERST 0x8827u /* "error setting status of service <%s>" */
#define ERR_EM_UTILS_RMADMD 0x8828u /* "error removing administration directory <%s>" */
#define ERR_EM_UTILS_RMCOD 0x8829u /* "error removing code directory <%s>" */
#define ERR_EM_UTILS_VQTMPD 0x882Au /* "error getting temporary directory" */
#define ERR_EM_UTILS_VQMDD 0x882Bu /* "error getting module directory" */
#define ERR_EM_UTILS_SEREN 0x882Cu /* "error enabling service <%s>" */
#define ERR_EM_UTILS_CMODR 0x882Du /* "error changing mode of <%s> to read" */
#define ERR_EM_UTILS_CMODW 0x882Eu /* "error changing mode of <%s> to write" */

/* REG (0x1F00) */
#define ERR_REG_OPEN 0x1F01u /* "error opening registry file <%s>" */
#define ERR_REG_LOCK 0x1F02u /* "failed to lock registry file <%s>" */
#define ERR_REG_READ 0x1F03u /* "failed to read registry file <%s>" */
#define ERR_REG_WRITE 0x1F04u /* "failed to write registry file <%s>" */
#define ERR_REG_NOBINSUP 0x1F05u /* "writing binary registry entries is not supported" */
#define ERR_REG_UNKTYP 0x1F06u /* "unknown value type for key <%s>" */
#define ERR_REG_OPENKEY 0x1F07u /* "error in opening registry key <%s\\%s>" */
#define ERR_REG_SETKEY 0x1F08u /* "error in setting registry key <%s\\%s>" */
#define ERR_REG_DELKEY 0x1F09u /* "error in deleting registry key <%s\\%s>" */
#define ERR_REG_FLSKEY 0x1F0Au /* "error in flushing registry key <%s\\%s>" */
#define ERR_REG_DELVAL 0x1F0Bu /* "error in deleting value for registry key <%s\\%s>" */
#define ERR_REG_GETVAL 0x1F0Cu /* "error in retrieving the value for registry key <%s\\%s> " */

/* MSG (0x5000) */
#define ERR_MSG_UNUSED_1 0x5001u /* "" */
#define ERR_MSG_UNUSED_2 0x5002u /* "" */
#define ERR_MSG_CRC 0x5003u /* "buffer checksum error" */
#define ERR_MSG_TYPMIS 0x5004u /* "current parameter is of type %d and not type %d" */
#define ERR_MSG_NOATT 0x5005u /* "attachment %d was not found" */
#define ERR_MSG_SEND 0x5006u /* "error sending message" */
#define ERR_MSG_ATTOPEN 0x5007u /* "error opening <%s>" */
#define ERR_MSG_ATTREAD 0x5008u /* "error reading <%s>" */
#define ERR_MSG_BADHEAD 0x5009u /* "bad header received, got code <%d> instead <%s>" */
#define ERR_MSG_RECV 0x500Au /* "error receiving message" */
#define ERR_MSG_GETTEMP 0x500Bu /* "error generating temporary name" */
#define ERR_MSG_ATTCRE 0x500Cu /* "error creating <%s>" */
#define ERR_MSG_ATTWR 0x500Du /* "error writing <%s>" */
#define ERR_MSG_UNKTYP 0x500Eu /* "unknown message type (%d)" */
#define ERR_MSG_BADVAR 0x500Fu /* "empty network variable <%s>" */
#define ERR_MSG_ATTDEL 0x5010u /* "error deleting <%s>" */
#define ERR_MSG_TGTROOT 0x5011u /* "name on target <%s> is outside the target root <%s>" */
#define ERR_MSG_TOOBIG 0x5012u /* "message of more than %u bytes refused (%s)" */
#define ERR_MSG_TOOMANY 0x5013u /* "more than %d attachments in one message refused" */
#define ERR_MSG_BADMSG 0x5014u /* "malformed message: %s" */
#define ERR_MSG_SMALLBUF 0x5015u /* "buffer of %u bytes too small for a string of %u bytes" */

/* MSSHARE (0x8400) */
#define ERR_MSSHARE_ENUM 0x8401u /* "error enumerating shares on <%s>" */
#define ERR_MSSHARE_SET 0x8402u /* "error setting share <%s>" */
#define ERR_MSSHARE_FILE 0x8403u /* "error in share file <%s>" */
#define ERR_MSSHARE_ADD 0x8404u /* "error adding share <%s>" */
#define ERR_MSSHARE_DELETE 0x8405u /* "error deleting share <%s>" */
#define ERR_MSSHARE_TYPE 0x8406u /* "unknown share type <%s>" */

/* MAP (0x8900) */
#define ERR_MAP_ALHAN 0x8901u /* "error allocating handle" */
#define ERR_MAP_SETB 0x8902u /* "error setting table <%s>" */
#define ERR_MAP_RDFL 0x8903u /* "error reading file <%s>" */
#define ERR_MAP_MALL 0x8904u /* "error allocating dynamic memory" */
#define ERR_MAP_MALLOC 0x8905u /* "error allocating dynamic memory (%s)" */
#define ERR_MAP_ADDCON 0x8906u /* "error adding connection <%s>" */
#define ERR_MAP_CANCON 0x8907u /* "error cancelling connection <%s>" */
#define ERR_MAP_ISCON 0x8908u /* "error checking connection <%s>" */
#define ERR_MAP_UNAVAIL 0x8909u /* "device <%s> is unavailable" */
#define ERR_MAP_ALREAD 0x890Au /* "device <%s> is already connected" */
#define ERR_MAP_DISCONT 0x890Bu /* "device <%s> is disconnected" */
#define ERR_MAP_INVDRV 0x890Cu /* "invalid drive <%s>" */
#define ERR_MAP_NOTEXST 0x890Du /* "<%s> does not exist" */
#define ERR_MAP_NOTEIST 0x890Eu /* "network name <%s> does not exist" */
#define ERR_MAP_SERCNT 0x890Fu /* "error connecting to service <%s>" */
#define ERR_MAP_GNESEC 0x8910u /* "error getting next section" */
#define ERR_MAP_SETSEC 0x8911u /* "error setting section <%s>" */
#define ERR_MAP_SETFLD 0x8912u /* "error setting field <%s>" */
#define ERR_MAP_WRTCN 0x8913u /* "error writing connection <%s>" */
#define ERR_MAP_CONPH 0x8914u /* "error connecting path <%s>" */
#define ERR_MAP_GTDMD 0x8915u /* "error getting domain <%s>" */
#define ERR_MAP_DLLERR 0x8916u /* "error loading library <%s>" */
#define ERR_MAP_OPNSER 0x8917u /* "error opening service <%s>" */
#define ERR_MAP_OPNMGS 0x8918u /* "error opening service manager" */
#define ERR_MAP_STRSER 0x8919u /* "error starting service <%s>" */
#define ERR_MAP_SENEX 0x891Au /* "service <%s> does not exist" */
#define ERR_MAP_SENTRU 0x891Bu /* "service <%s> is not running" */
#define ERR_MAP_QUERY 0x891Cu /* "error querying service <%s>" */
#define ERR_MAP_CONTROL 0x891Du /* "error controlling service <%s>" */
#define ERR_MAP_SERVGEN 0x891Eu /* "%s" */
#define ERR_MAP_CONCT 0x891Fu /* "error connecting to <%s>" */
#define ERR_MAP_ADDMP 0x8920u /* "error adding mapping <%s>" */
#define ERR_MAP_WRITE 0x8921u /* "error writing <%s>" */
#define ERR_MAP_CHKSE 0x8922u /* "error checking service <%s>" */
#define ERR_MAP_NOTFO 0x8923u /* "<%s> was not found" */
#define ERR_MAP_LCNSLMT 0x8924u /* "license limit reached (%s)" */
#define ERR_MAP_LCNSEXT 0x8925u /* "license has expired (%s)" */
#define ERR_MAP_REFRESH 0x8926u /* "error refreshing <%s>" */
#define ERR_MAP_MISSVAL 0x8927u /* "missing value <%s>" */
#define ERR_MAP_TOUCH 0x8928u /* "error touching <%s>" */

/* CEM (0x9000) */
#define ERR_CEM_INSFLD 0x9001u /* "error inserting field <%s>" */
#define ERR_CEM_COF 0x9002u /* "error opening configuration file <%s>" */
#define ERR_CEM_MALLOC 0x9003u /* "error allocating dynamic memory" */
#define ERR_CEM_REALLOC 0x9004u /* "error reallocating dynamic memory" */
#define ERR_CEM_STRDUP 0x9005u /* "error duplicating string" */
#define ERR_CEM_SETSEST 0x9006u /* "error setting state of section <%s>" */
#define ERR_CEM_GETSEST 0x9007u /* "error getting state of section <%s>" */
#define ERR_CEM_ALHENDL 0x9008u /* "error allocating configuration handle" */
#define ERR_CEM_SETABL 0x9009u /* "error setting configuration table" */
#define ERR_CEM_REFILHA 0x900Au /* "error reading file <%s> into handle" */
#define ERR_CEM_GESFBYC 0x900Bu /* "error getting string field by constant <%d>" */
#define ERR_CEM_SESFBYC 0x900Cu /* "error setting string field by constant <%d>" */
#define ERR_CEM_GESMLTV 0x900Du /* "error getting multi-line value of field <%s>" */
#define ERR_CEM_SESMLTV 0x900Eu /* "error setting multi-line value of field <%s>" */
#define ERR_CEM_GEMLITV 0x900Fu /* "error getting multi-line item of field <%s>" */
#define ERR_CEM_SEMLITV 0x9010u /* "error setting multi-line item of field <%s>" */
#define ERR_CEM_GEBFBYC 0x9011u /* "error getting boolean field by constant <%d>" */
#define ERR_CEM_SEBFBYC 0x9012u /* "error setting boolean field by constant <%d>" */
#define ERR_CEM_GESFBYS 0x9013u /* "error getting string field <%s>" */
#define ERR_CEM_SESFBYS 0x9014u /* "error setting string field <%s>" */
#define ERR_CEM_GESBOYS 0x9015u /* "error getting boolean field <%s>" */
#define ERR_CEM_SESBOYS 0x9016u /* "error setting boolean field <%s>" */
#define ERR_CEM_SETSEC 0x9017u /* "error setting security on <%s>" */
#define ERR_CEM_ILESENA 0x9018u /* "illegal service name <%s>" */
#define ERR_CEM_ILCTRLK 0x9019u /* "illegal control key <%s>" */
#define ERR_CEM_INSECX 0x901Au /* "error inserting section <%s>" */
#define ERR_CEM_REMSEC 0x901Bu /* "error removing section <%s>" */
#define ERR_CEM_ILACT 0x901Cu /* "illegal action <%s>" */
#define ERR_CEM_DRIEXST 0x901Du /* "directory <%s> already exists" */
#define ERR_CEM_DRDNTEX 0x901Eu /* "directory <%s> does not exist" */
#define ERR_CEM_CFWRT 0x901Fu /* "error writing configuration file <%s>" */
#define ERR_CEM_STRCF 0x9020u /* "error storing configuration file <%s>" */
#define ERR_CEM_GINCOF 0x9021u /* "error getting included configuration file <%s>" */
#define ERR_CEM_DELF 0x9022u /* "error deleting file <%s>" */
#define ERR_CEM_CHCLI 0x9023u /* "error checking client <%s>" */
#define ERR_CEM_GWIND 0x9024u /* "error getting windows directory" */
#define ERR_CEM_VQSCD 0x9025u /* "error getting scheduler directory" */
#define ERR_CEM_RGKEY 0x9026u /* "error reading registry key <%s>" */
#define ERR_CEM_GSERN 0x9027u /* "error getting service name" */
#define ERR_CEM_GSERST 0x9028u /* "error getting status of service <%s>" */
#define ERR_CEM_SSERST 0x9029u /* "error setting status of service <%s>" */
#define ERR_CEM_RMADMD 0x902Au /* "error removing administration directory <%s>" */
#define ERR_CEM_RMCOD 0x902Bu /* "error removing code directory <%s>" */
#define ERR_CEM_VQTMPD 0x902Cu /* "error getting temporary directory" */
#define ERR_CEM_VQMDD 0x902Du /* "error getting module directory" */
#define ERR_CEM_SEREN 0x902Eu /* "error enabling service <%s>" */
#define ERR_CEM_CMODR 0x902Fu /* "error changing mode of <%s> to read" */
#define ERR_CEM_CMODW 0x9030u /* "error changing mode of <%s> to write" */
#define ERR_CEM_OFILE 0x9031u /* "error opening file <%s>" */
#define ERR_CEM_MSGKND 0x9032u /* "unknown message kind <%s>" */
#define ERR_CEM_UNVAL 0x9033u /* "unknown value <%s>" */
#define ERR_CEM_DEREQ 0x9034u /* "error decoding request <%s>" */
#define ERR_CEM_INIBUF 0x9035u /* "error initializing buffer" */
#define ERR_CEM_DIRNME 0x9036u /* "invalid directory name <%s>" */
#define ERR_CEM_INISCH 0x9037u /* "error initializing search <%s>" */
#define ERR_CEM_ALCHDE 0x9038u /* "error allocating handle" */
#define ERR_CEM_SETBL 0x9039u /* "error setting table <%s>" */
#define ERR_CEM_RDFLTO 0x903Au /* "error reading field <%s> from request" */
#define ERR_CEM_RDFLFR 0x903Bu /* "error reading field <%s> from file" */
#define ERR_CEM_UPDFLD 0x903Cu /* "error updating field <%s>" */
#define ERR_CEM_WTHDE 0x903Du /* "error writing handle to <%s>" */
#define ERR_CEM_APPPROP 0x903Eu /* "error applying property <%s>" */
#define ERR_CEM_REQVAL 0x903Fu /* "required value <%s> is missing" */
#define ERR_CEM_BLDANS 0x9040u /* "error building answer" */
#define ERR_CEM_MEMORY 0x9041u /* "out of memory (%s)" */
#define ERR_CEM_FREHDE 0x9042u /* "error freeing handle" */
#define ERR_CEM_INSFLE 0x9043u /* "error inserting file <%s>" */
#define ERR_CEM_SETCOM 0x9044u /* "error setting comment <%s>" */
#define ERR_CEM_FLDTPE 0x9045u /* "invalid type of field <%s>" */
#define ERR_CEM_FILE 0x9046u /* "error in file <%s>" */
#define ERR_CEM_FLNM 0x9047u /* "invalid file name <%s>" */
#define ERR_CEM_NOCONT 0x9048u /* "no content in <%s>" */
#define ERR_CEM_CLTPRB 0x9049u /* "client problem: %s" */
#define ERR_CEM_SERVER 0x904Au /* "server error: %s" */
#define ERR_CEM_GENSERVR 0x904Bu /* "%s" */
#define ERR_CEM_CLIENT 0x904Cu /* "client error: %s" */
#define ERR_CEM_PREPR 0x904Du /* "error preparing request <%s>" */
#define ERR_CEM_VERIFY 0x904Eu /* "error verifying <%s>" */
#define ERR_CEM_RECIEVE 0x904Fu /* "error receiving message" */
#define ERR_CEM_SENDMSG 0x9050u /* "error sending message" */
#define ERR_CEM_FLDVALU 0x9051u /* "invalid value for field <%s>" */
#define ERR_CEM_RCVFILE 0x9052u /* "error receiving file <%s>" */
#define ERR_CEM_ALLOWED 0x9053u /* "operation <%s> is not allowed" */

/* SEM (0x9100) */
#define ERR_SEM_INSFLD 0x9101u /* "error inserting field <%s>" */
#define ERR_SEM_SETMSG 0x9102u /* "error setting message <%s>" */
#define ERR_SEM_COF 0x9103u /* "error opening configuration file <%s>" */
#define ERR_SEM_MALLOC 0x9104u /* "error allocating dynamic memory" */
#define ERR_SEM_REALLOC 0x9105u /* "error reallocating dynamic memory" */
#define ERR_SEM_STRDUP 0x9106u /* "error duplicating string" */
#define ERR_SEM_SETSEST 0x9107u /* "error setting state of section <%s>" */
#define ERR_SEM_GETSEST 0x9108u /* "error getting state of section <%s>" */
#define ERR_SEM_ALHENDL 0x9109u /* "error allocating configuration handle" */
#define ERR_SEM_SETABL 0x910Au /* "error setting configuration table" */
#define ERR_SEM_REFILHA 0x910Bu /* "error reading file <%s> into handle" */
#define ERR_SEM_GESFBYC 0x910Cu /* "error getting string field by constant <%d>" */
#define ERR_SEM_SESFBYC 0x910Du /* "error setting string field by constant <%d>" */
#define ERR_SEM_GESMLTV 0x910Eu /* "error getting multi-line value of field <%s>" */
#define ERR_SEM_SESMLTV 0x910Fu /* "error setting multi-line value of field <%s>" */
#define ERR_SEM_GEMLITV 0x9110u /* "error getting multi-line item of field <%s>" */
#define ERR_SEM_SEMLITV 0x9111u /* "error setting multi-line item of field <%s>" */
#define ERR_SEM_GEBFBYC 0x9112u /* "error getting boolean field by constant <%d>" */
#define ERR_SEM_SEBFBYC 0x9113u /* "error setting boolean field by constant <%d>" */
#define ERR_SEM_GESFBYS 0x9114u /* "error getting string field <%s>" */
#define ERR_SEM_SESFBYS 0x9115u /* "error setting string field <%s>" */
#define ERR_SEM_GESBOYS 0x9116u /* "error getting boolean field <%s>" */
#define ERR_SEM_SESBOYS 0x9117u /* "error setting boolean field <%s>" */
#define ERR_SEM_SETSEC 0x9118u /* "error setting security on <%s>" */
#define ERR_SEM_ILESENA 0x9119u /* "illegal service name <%s>" */
#define ERR_SEM_ILESEID 0x911Au /* "illegal service id <%s>" */
#define ERR_SEM_SERVERR 0x911Bu /* "service error: %s" */
#define ERR_SEM_ILECNTL 0x911Cu /* "illegal service control <%s>" */
#define ERR_SEM_ALRINST 0x911Du /* "service <%s> is already installed" */
#define ERR_SEM_ALRUINS 0x911Eu /* "service <%s> is already uninstalled" */
#define ERR_SEM_ALRISST 0x911Fu /* "service <%s> is already in the requested state" */
#define ERR_SEM_ALRSTOP 0x9120u /* "service <%s> is already stopped" */
#define ERR_SEM_ALRSTRT 0x9121u /* "service <%s> is already started" */
#define ERR_SEM_INSECX 0x9122u /* "error inserting section <%s>" */
#define ERR_SEM_REMSEC 0x9123u /* "error removing section <%s>" */
#define ERR_SEM_ILACT 0x9124u /* "illegal action <%s>" */
#define ERR_SEM_DRIEXST 0x9125u /* "directory <%s> already exists" */
#define ERR_SEM_DRDNTEX 0x9126u /* "directory <%s> does not exist" */
#define ERR_SEM_CFWRT 0x9127u /* "error writing configuration file <%s>" */
#define ERR_SEM_STRCF 0x9128u /* "error storing configuration file <%s>" */
#define ERR_SEM_GINCOF 0x9129u /* "error getting included configuration file <%s>" */
#define ERR_SEM_DELF 0x912Au /* "error deleting file <%s>" */
#define ERR_SEM_CHCLI 0x912Bu /* "error checking client <%s>" */
#define ERR_SEM_GWIND 0x912Cu /* "error getting windows directory" */
#define ERR_SEM_VQSCD 0x912Du /* "error getting scheduler directory" */
#define ERR_SEM_RGKEY 0x912Eu /* "error reading registry key <%s>" */
#define ERR_SEM_GSERN 0x912Fu /* "error getting service name" */
#define ERR_SEM_GSERST 0x9130u /* "error getting status of service <%s>" */
#define ERR_SEM_SSERST 0x9131u /* "error setting status of service <%s>" */
#define ERR_SEM_RMADMD 0x9132u /* "error removing administration directory <%s>" */
#define ERR_SEM_RMCOD 0x9133u /* "error removing code directory <%s>" */
#define ERR_SEM_VQTMPD 0x9134u /* "error getting temporary directory" */
#define ERR_SEM_VQMDD 0x9135u /* "error getting module directory" */
#define ERR_SEM_SEREN 0x9136u /* "error enabling service <%s>" */
#define ERR_SEM_CMODR 0x9137u /* "error changing mode of <%s> to read" */
#define ERR_SEM_CMODW 0x9138u /* "error changing mode of <%s> to write" */
#define ERR_SEM_OFILE 0x9139u /* "error opening file <%s>" */
#define ERR_SEM_MSGKND 0x913Au /* "unknown message kind <%s>" */
#define ERR_SEM_UNVAL 0x913Bu /* "unknown value <%s>" */
#define ERR_SEM_DEREQ 0x913Cu /* "error decoding request <%s>" */
#define ERR_SEM_INIBUF 0x913Du /* "error initializing buffer" */
#define ERR_SEM_DIRNME 0x913Eu /* "invalid directory name <%s>" */
#define ERR_SEM_INISCH 0x913Fu /* "error initializing search <%s>" */
#define ERR_SEM_ALCHDE 0x9140u /* "error allocating handle" */
#define ERR_SEM_SETBL 0x9141u /* "error setting table <%s>" */
#define ERR_SEM_RDFLTO 0x9142u /* "error reading field <%s> from request" */
#define ERR_SEM_RDFLFR 0x9143u /* "error reading field <%s> from file" */
#define ERR_SEM_UPDFLD 0x9144u /* "error updating field <%s>" */
#define ERR_SEM_WTHDE 0x9145u /* "error writing handle to <%s>" */
#define ERR_SEM_APPPROP 0x9146u /* "error applying property <%s>" */
#define ERR_SEM_REQVAL 0x9147u /* "required value <%s> is missing" */
#define ERR_SEM_BLDANS 0x9148u /* "error building answer" */
#define ERR_SEM_MEMORY 0x9149u /* "out of memory (%s)" */
#define ERR_SEM_FREHDE 0x914Au /* "error freeing handle" */
#define ERR_SEM_INSFLE 0x914Bu /* "error inserting file <%s>" */
#define ERR_SEM_SETCOM 0x914Cu /* "error setting comment <%s>" */
#define ERR_SEM_FLDTPE 0x914Du /* "invalid type of field <%s>" */
#define ERR_SEM_FLDVALU 0x914Eu /* "invalid value for field <%s>" */
#define ERR_SEM_IMPVALU 0x914Fu /* "error importing value <%s>" */
#define ERR_SEM_IMPSUB 0x9150u /* "error importing subsection <%s>" */
#define ERR_SEM_FILE 0x9151u /* "error in file <%s>" */
#define ERR_SEM_DIR 0x9152u /* "error in directory <%s>" */
#define ERR_SEM_FLNM 0x9153u /* "invalid file name <%s>" */
#define ERR_SEM_NOCONT 0x9154u /* "no content in <%s>" */
#define ERR_SEM_PREPR 0x9155u /* "error preparing request <%s>" */
#define ERR_SEM_VERIFY 0x9156u /* "error verifying <%s>" */
#define ERR_SEM_GETARGS 0x9157u /* "error getting arguments" */
#define ERR_SEM_EXISTDR 0x9158u /* "directory <%s> already exists" */
#define ERR_SEM_EXIALDR 0x9159u /* "directory <%s> already exists in the list" */
#define ERR_SEM_EXISTFL 0x915Au /* "file <%s> already exists" */
#define ERR_SEM_EXISTAL 0x915Bu /* "<%s> already exists in the list" */
#define ERR_SEM_ERRDLL 0x915Cu /* "error loading library <%s>" */
#define ERR_SEM_EXISTDT 0x915Du /* "date <%s> already exists" */
#define ERR_SEM_EXIALDT 0x915Eu /* "date <%s> already exists in the list" */
#define ERR_SEM_ALLOWED 0x915Fu /* "operation <%s> is not allowed" */
#define ERR_SEM_LOADLC 0x9160u /* "error loading license <%s>" */
#define ERR_SEM_GETSATN 0x9161u /* "error getting satellite name" */
#define ERR_SEM_NODBELO 0x9162u /* "no database entry for <%s>" */
#define ERR_SEM_PERMDEN 0x9163u /* "permission denied for <%s>" */
#define ERR_SEM_USPERMD 0x9164u /* "user <%s> has no permission for <%s>" */

/* MCT (0x1B00) */
#define ERR_MCT_SOCKET 0x1B01u /* "error creating socket" */
#define ERR_MCT_INPUT 0x1B02u /* "invalid input <%s>" */
#define ERR_MCT_SEND 0x1B03u /* "error sending data" */
#define ERR_MCT_RECV 0x1B04u /* "error receiving data" */
#define ERR_MCT_RECV_TIMEOUT 0x1B05u /* "receive timed out" */
#define ERR_MCT_BUFFER 0x1B06u /* "buffer is too small" */
#define ERR_MCT_MALLOC 0x1B07u /* "error allocating dynamic memory" */
#define ERR_MCT_FOPEN 0x1B08u /* "error opening file <%s>" */
#define ERR_MCT_FNEXIST 0x1B09u /* "file <%s> does not exist" */
#define ERR_MCT_EDGE 0x1B0Au /* "edge error: %s" */

/* EM_API (0x9200) */
#define ERR_EM_API_SYN 0x9201u /* "syntax error: %s" */
#define ERR_EM_API_SVC 0x9202u /* "service error: %s" */

/* SEC (0x9300) */
#define ERR_SEC_PERM 0x9301u /* "permission denied for <%s>" */
#define ERR_SEC_NOAPPRV 0x9302u /* "operation <%s> is not approved" */
#define ERR_SEC_CHKPRIV 0x9303u /* "error checking privileges of user <%s>" */
#define ERR_SEC_CHKSSL 0x9304u /* "error checking ssl settings <%s>" */

/* PSWD (0x9400) */
#define ERR_PSWD_FILE 0x9401u /* "error in password file <%s>" */
#define ERR_PSWD_USER 0x9402u /* "user <%s> was not found in password file" */

/* MKL (0x1900) */
#define ERR_MKL_FILETYPE 0x1901u /* "unknown file type <%s>" */
#define ERR_MKL_NOUNICOD 0x1902u /* "unsupported unicode file name <%s>" */
#define ERR_MKL_FPRINTF 0x1903u /* "error writing list file <%s>" */
#define ERR_MKL_SEPERATOR 0x1904u /* "invalid separator <%s>" */
#define ERR_MKL_DUPNAME 0x1905u /* "duplicate name <%s>" */
#define ERR_MKL_BADDRIVE 0x1906u /* "bad drive <%s>" */
#define ERR_MKL_BADDIR 0x1907u /* "bad directory <%s>" */
#define ERR_MKL_FILEMISS 0x1908u /* "file <%s> is missing" */
#define ERR_MKL_VOLUME 0x1909u /* "error getting volume information of <%s>" */
#define ERR_MKL_BADLINK 0x190Au /* "unreadable symbolic link <%s>" */
#define ERR_MKL_NOTSORTED 0x190Bu /* "list <%s> is not sorted" */
#define ERR_MKL_BADPERM 0x190Cu /* "bad permission <%s>" */

/* EXP (0x1C00) */
#define ERR_EXP_THREAD 0x1C01u /* "error creating thread" */
#define ERR_EXP_FORK 0x1C02u /* "error creating child process" */
#define ERR_EXP_THRDINFO 0x1C03u /* "error getting thread information" */
#define ERR_EXP_PRCTERM 0x1C04u /* "process <%s> terminated unexpectedly" */
#define ERR_EXP_MISSFILES 0x1C05u /* "missing files in <%s>" */
#define ERR_EXP_SRVERR 0x1C06u /* "server error: %s" */
#define ERR_EXP_NACKERR 0x1C07u /* "negative acknowledge received: %s" */
#define ERR_EXP_TMPDIRI 0x1C08u /* "invalid temporary directory <%s>" */
#define ERR_EXP_SETEVENT 0x1C09u /* "error setting event" */
#define ERR_EXP_CRTPIPE 0x1C0Au /* "error creating pipe" */
#define ERR_EXP_BADVAR 0x1C0Bu /* "bad variable <%s>" */
#define ERR_EXP_PIPERD 0x1C0Cu /* "error reading from pipe" */
#define ERR_EXP_PIPEWR 0x1C0Du /* "error writing to pipe" */
#define ERR_EXP_TRAN 0x1C0Eu /* "transfer error: %s" */
#define ERR_EXP_PRCKILL 0x1C0Fu /* "error killing process <%s>" */
#define ERR_EXP_TMPDIRE 0x1C10u /* "error creating temporary directory <%s>" */
#define ERR_EXP_CRTFILE 0x1C11u /* "error creating file <%s>" */
#define ERR_EXP_BADLINK 0x1C12u /* "unreadable symbolic link <%s>" */

/* FS (0x2000) */
#define ERR_FS_SRCMIS 0x2001u /* "source file does not exist <%s>" */
#define ERR_FS_CRCMIS 0x2002u /* "crc mismatch for file <%s>" */
#define ERR_FS_BADCODE 0x2003u /* "bad code <%s>" */
#define ERR_FS_MISTIME 0x2004u /* "time mismatch for file <%s>" */
#define ERR_FS_SRVERR 0x2005u /* "server error: %s" */
#define ERR_FS_MISCRC 0x2006u /* "missing crc for file <%s>" */
#define ERR_FS_NOEQUAL 0x2007u /* "files <%s> and <%s> are not equal" */

/* TV (0x3100) */
#define ERR_TV_NOCWD 0x3101u /* "failed to get current working directory" */
#define ERR_TV_INITERR 0x3102u /* "initialization error" */
#define ERR_TV_INTERR 0x3103u /* "internal error (%s)" */
#define ERR_TV_PROTERR 0x3104u /* "protocol error (%s)" */
#define ERR_TV_NOFUNC 0x3105u /* "function <%s> is not supported" */
#define ERR_TV_PARSE 0x3106u /* "error parsing command line" */
#define ERR_TV_REMPARSE 0x3107u /* "error parsing remote command" */
#define ERR_TV_NOCONFILE 0x3108u /* "configuration file <%s> does not exist" */
#define ERR_TV_CREATECON 0x3109u /* "failed to create configuration file <%s>" */
#define ERR_TV_OPENCON 0x310Au /* "failed to open configuration file <%s>" */
#define ERR_TV_SEEKCON 0x310Bu /* "failed to seek in configuration file <%s>" */
#define ERR_TV_WRITECON 0x310Cu /* "failed to write configuration file <%s>" */
#define ERR_TV_READCON 0x310Du /* "failed to read configuration file <%s>" */
#define ERR_TV_FORMATCON 0x310Eu /* "bad format of configuration file <%s>" */
#define ERR_TV_NOSOURCE 0x310Fu /* "no source was specified" */
#define ERR_TV_NODEST 0x3110u /* "no destination was specified" */
#define ERR_TV_BOTHLCL 0x3111u /* "source and destination are both local" */
#define ERR_TV_BOTHRMT 0x3112u /* "source and destination are both remote" */
#define ERR_TV_MODNOTMP 0x3113u /* "mode <%s> is not implemented" */
#define ERR_TV_EXNOREM 0x3114u /* "execute is not allowed for remote files" */
#define ERR_TV_MALLOC 0x3115u /* "memory allocation failed" */
#define ERR_TV_UNEXP 0x3116u /* "unexpected error (%s)" */
#define ERR_TV_REPACC 0x3117u /* "failed to access report file <%s>" */
#define ERR_TV_REPOPEN 0x3118u /* "failed to open report file <%s>" */
#define ERR_TV_INIT 0x3119u /* "initialization failed" */
#define ERR_TV_INITFIL 0x311Au /* "failed to initialize file <%s>" */
#define ERR_TV_INITFL 0x311Bu /* "failed to initialize file list <%s>" */
#define ERR_TV_INITNETP 0x311Cu /* "failed to initialize network parameters" */
#define ERR_TV_SUBMJOB 0x311Du /* "failed to submit job <%s>" */
#define ERR_TV_CHDIR 0x311Eu /* "failed to change directory to <%s>" */
#define ERR_TV_NODEUNK 0x311Fu /* "node <%s> is unknown" */
#define ERR_TV_SERVUNK 0x3120u /* "service <%s> is unknown" */
#define ERR_TV_NETLOGIN 0x3121u /* "network login failed for user <%s>" */
#define ERR_TV_NOSOCKET 0x3122u /* "failed to create socket" */
#define ERR_TV_CONNECT 0x3123u /* "failed to connect to <%s>" */
#define ERR_TV_CONNECTTO 0x3124u /* "connection to <%s> timed out" */
#define ERR_TV_CONNECTREF 0x3125u /* "connection to <%s> was refused" */
#define ERR_TV_CONNECTDWN 0x3126u /* "host <%s> is down" */
#define ERR_TV_UNREACH 0x3127u /* "host <%s> is unreachable" */
#define ERR_TV_SOADDR 0x3128u /* "failed to get socket address" */
#define ERR_TV_SEND 0x3129u /* "send failed" */
#define ERR_TV_RECV 0x312Au /* "receive failed" */
#define ERR_TV_RECVACK 0x312Bu /* "failed to receive acknowledge" */
#define ERR_TV_RECVABRT 0x312Cu /* "transfer was aborted by the remote side" */
#define ERR_TV_ACKMIS 0x312Du /* "acknowledge mismatch" */
#define ERR_TV_VERDIF 0x312Eu /* "version mismatch: local <%s>, remote <%s>" */
#define ERR_TV_NOSHELL 0x312Fu /* "user <%s> has no shell" */
#define ERR_TV_LOGININC 0x3130u /* "login incorrect for user <%s>" */
#define ERR_TV_RCHDIR 0x3131u /* "failed to change remote directory to <%s>" */
#define ERR_TV_SUID 0x3132u /* "failed to set user id" */
#define ERR_TV_NOUSER 0x3133u /* "user <%s> does not exist" */
#define ERR_TV_SGID 0x3134u /* "failed to set group id" */
#define ERR_TV_FTPUSERS 0x3135u /* "user <%s> is not allowed to transfer files" */
#define ERR_TV_NOVSHELL 0x3136u /* "user <%s> has an invalid shell" */
#define ERR_TV_CHROOT 0x3137u /* "failed to change root directory to <%s>" */
#define ERR_TV_INITGROUPS 0x3138u /* "failed to initialize groups of user <%s>" */
#define ERR_TV_SEC 0x3139u /* "security violation (%s)" */
#define ERR_TV_SUBM 0x3141u /* "Tolvenar submission failed" */
#define ERR_TV_MISMATCH 0x3142u /* "mismatch between <%s> and <%s>" */
#define ERR_TV_COMPMIS 0x3143u /* "compression mismatch" */
#define ERR_TV_COMPUNK 0x3144u /* "unknown compression method <%s>" */
#define ERR_TV_COMPCRC 0x3145u /* "checksum error in compressed data" */
#define ERR_TV_UNCOMPCRC 0x3146u /* "checksum error in uncompressed data" */
#define ERR_TV_PARSOURCE 0x3147u /* "error parsing source <%s>" */
#define ERR_TV_PARDEST 0x3148u /* "error parsing destination <%s>" */
#define ERR_TV_PARDIR 0x3149u /* "error parsing directory <%s>" */
#define ERR_TV_LCOMM 0x314Au /* "local command <%s> failed" */
#define ERR_TV_RCOMM 0x314Bu /* "remote command <%s> failed" */
#define ERR_TV_NORCOMM 0x314Cu /* "remote commands are not allowed" */
#define ERR_TV_SOURCECRC 0x314Du /* "checksum error in source file <%s>" */
#define ERR_TV_DESTCRC 0x314Eu /* "checksum error in destination file <%s>" */
#define ERR_TV_NETRCACC 0x314Fu /* "failed to access netrc file <%s>" */
#define ERR_TV_NETRCSYN 0x3150u /* "syntax error in netrc file <%s>" */
#define ERR_TV_VERIFY 0x3151u /* "verification failed for file <%s>" */
#define ERR_TV_VERSRC 0x3152u /* "verification failed for source file <%s>" */
#define ERR_TV_VERDEST 0x3153u /* "verification failed for destination file <%s>" */
#define ERR_TV_ILLMSG 0x3154u /* "illegal message received" */
#define ERR_TV_USRNAM 0x3155u /* "invalid user name <%s>" */
#define ERR_TV_NOFILES 0x3156u /* "no files were transferred" */
#define ERR_TV_NOTALLFILE 0x3157u /* "not all files were transferred" */
#define ERR_TV_DIRDEN 0x3158u /* "access to directory <%s> is denied" */
#define ERR_TV_NOOVER 0x3159u /* "file <%s> exists and may not be overwritten" */
#define ERR_TV_CREOUT 0x315Au /* "failed to create output file <%s>" */
#define ERR_TV_CRETEMP 0x315Bu /* "failed to create temporary file <%s>" */
#define ERR_TV_NOREC 0x315Cu /* "file <%s> was not received" */
#define ERR_TV_RENAME 0x315Du /* "failed to rename <%s> to <%s>" */
#define ERR_TV_OPEN 0x315Eu /* "failed to open file <%s>" */
#define ERR_TV_MONITOR 0x315Fu /* "monitor error (%s)" */
#define ERR_TV_WRLIM 0x3160u /* "write limit exceeded for file <%s>" */
#define ERR_TV_WRTOUT 0x3161u /* "failed to write output file <%s>" */
#define ERR_TV_NOCMDMEM 0x3162u /* "not enough memory for command" */
#define ERR_TV_TVDPARSE 0x3163u /* "daemon failed to parse request" */
#define ERR_TV_NOTPRIV 0x3164u /* "user <%s> is not privileged" */
#define ERR_TV_BATCH 0x3165u /* "batch error (%s)" */
#define ERR_TV_TVDPROT 0x3166u /* "daemon protocol error" */
#define ERR_TV_TVDSOCKET 0x3167u /* "daemon failed to create socket" */
#define ERR_TV_TVDBIND 0x3168u /* "daemon failed to bind to port <%s>" */
#define ERR_TV_TVDLISTEN 0x3169u /* "daemon failed to listen" */
#define ERR_TV_TVDACCEPT 0x316Au /* "daemon failed to accept connection" */
#define ERR_TV_TVDFORK 0x316Bu /* "daemon failed to create child process" */
#define ERR_TV_TVDDUP 0x316Cu /* "daemon failed to duplicate socket" */
#define ERR_TV_OPENINP 0x316Du /* "failed to open input file <%s>" */
#define ERR_TV_CHOWN 0x316Eu /* "failed to change owner of <%s>" */
#define ERR_TV_CONNOTALL 0x316Fu /* "connection from <%s> is not allowed" */
#define ERR_TV_OPENMODEL 0x3170u /* "failed to open model file <%s>" */
#define ERR_TV_CREDIR 0x3171u /* "failed to create directory <%s>" */
#define ERR_TV_SECCREDIR 0x3172u /* "failed to create secure directory <%s>" */
#define ERR_TV_DIRLIST 0x3173u /* "failed to list directory <%s>" */
#define ERR_TV_GETSOCK 0x3174u /* "failed to get socket" */
#define ERR_TV_DEASSGNSOCK 0x3175u /* "failed to deassign socket" */
#define ERR_TV_ASSGNSOCK 0x3176u /* "failed to assign socket" */
#define ERR_TV_SOCKSHARE 0x3177u /* "failed to share socket" */
#define ERR_TV_SNDFILE 0x3178u /* "failed to send file <%s>" */
#define ERR_TV_BATCHSUP 0x3179u /* "batch mode is not supported" */
#define ERR_TV_TVDINIT 0x317Au /* "daemon initialization failed" */
#define ERR_TV_READ 0x317Bu /* "failed to read file <%s>" */
#define ERR_TV_CRESERVS 0x317Cu /* "service <%s> was created successfully" */
#define ERR_TV_CRESERVE 0x317Du /* "failed to create service <%s>" */
#define ERR_TV_REMSERVS 0x317Eu /* "service <%s> was removed successfully" */
#define ERR_TV_REMSERVE 0x317Fu /* "failed to remove service <%s>" */
#define ERR_TV_STARTSERVS 0x3180u /* "service <%s> was started successfully" */
#define ERR_TV_STARTSERVE 0x3181u /* "failed to start service <%s>" */
#define ERR_TV_STOPSERVS 0x3182u /* "service <%s> was stopped successfully" */
#define ERR_TV_STOPSERVE 0x3183u /* "failed to stop service <%s>" */
#define ERR_TV_FINISHED 0x3184u /* "transfer finished" */
#define ERR_TV_SECNOTSUP 0x3185u /* "secure transfer is not supported" */
#define ERR_TV_DEFDIRERR 0x3186u /* "failed to access default directory <%s>" */
#define ERR_TV_SECCONERR 0x3187u /* "secure connection error (%s)" */
#define ERR_TV_CERTERR 0x3188u /* "failed to load certificate <%s>" */
#define ERR_TV_KEYERR 0x3189u /* "failed to load private key <%s>" */
#define ERR_TV_CADIRFILE 0x318Au /* "failed to load certificate authority file or directory <%s>" */
#define ERR_TV_SSLREJ 0x318Bu /* "secure connection was rejected by the remote side" */
#define ERR_TV_SSLCONREQ 0x318Cu /* "secure connection is required" */
#define ERR_TV_SERVAUTH 0x318Du /* "server authentication failed" */
#define ERR_TV_FULLSERVAUTH 0x318Eu /* "full server authentication failed" */
#define ERR_TV_NOSSL 0x318Fu /* "secure connection is not available" */
#define ERR_TV_BADCIPHER 0x3190u /* "bad cipher <%s>" */
#define ERR_TV_BADPASS 0x3191u /* "bad password" */
#define ERR_TV_NOSECWRITE 0x3192u /* "secure write is not allowed" */
#define ERR_TV_ENCMISMATCH 0x3193u /* "encryption mismatch" */
#define ERR_TV_ENCNOPHRASE 0x3194u /* "no encryption phrase was specified" */
#define ERR_TV_ENCNOCIPHER 0x3195u /* "no encryption cipher was specified" */
#define ERR_TV_CIPMISMATCH 0x3196u /* "cipher mismatch" */
#define ERR_TV_PHRMISMATCH 0x3197u /* "phrase mismatch" */
#define ERR_TV_CMPMISMATCH 0x3198u /* "compression mismatch" */
#define ERR_TV_ENCERR 0x3199u /* "encryption error" */
#define ERR_TV_DECERR 0x319Au /* "decryption error" */
#define ERR_TV_RMACMISM 0x319Bu /* "remote message authentication code mismatch" */
#define ERR_TV_LMACMISM 0x319Cu /* "local message authentication code mismatch" */
#define ERR_TV_MACABORT 0x319Du /* "transfer aborted on message authentication code mismatch" */
#define ERR_TV_MISLPHR 0x319Eu /* "missing local phrase" */
#define ERR_TV_NODUPLIC 0x319Fu /* "duplicate transfer is not allowed" */
#define ERR_TV_LONLWTH 0x31A0u /* "license is limited to low bandwidth" */
#define ERR_TV_LREVOKE 0x31A1u /* "license has been revoked" */
#define ERR_TV_CONTACT 0x31A2u /* "please contact your vendor (%s)" */
#define ERR_TV_NOBATCHL 0x31A3u /* "license does not allow batch mode" */
#define ERR_TV_NORECL 0x31A4u /* "license does not allow receiving files" */
#define ERR_TV_NODAEMON 0x31A5u /* "license does not allow daemon mode" */
#define ERR_TV_NOCOMP 0x31A6u /* "license does not allow compression" */
#define ERR_TV_NOBAND 0x31A7u /* "license does not allow bandwidth control" */
#define ERR_TV_NOPOST 0x31A8u /* "license does not allow post commands" */
#define ERR_TV_NOMONITOR 0x31A9u /* "license does not allow monitoring" */
#define ERR_TV_NOCLIENT 0x31AAu /* "license does not allow client mode" */
#define ERR_TV_LUSER 0x31ABu /* "license user limit exceeded" */
#define ERR_TV_NOTVDREC 0x31ACu /* "daemon does not allow receiving files" */
#define ERR_TV_NOTVDPST 0x31ADu /* "daemon does not allow post commands" */
#define ERR_TV_WINABORT 0x31AEu /* "transfer was aborted by the user" */
#define ERR_TV_TRNSST 0x31AFu /* "transfer of <%s> started" */
#define ERR_TV_TRNSEND 0x31B0u /* "transfer of <%s> ended" */
#define ERR_TV_TRNSERR 0x31B1u /* "transfer of <%s> failed" */
#define ERR_TV_NOTEXT 0x31B2u /* "text mode is not supported" */
#define ERR_TV_FORCBIN 0x31B3u /* "text mode is not supported, binary mode is used" */
#define ERR_TV_LUSERMISS 0x31B4u /* "license user is missing" */
#define ERR_TV_FILELIMIT 0x31B5u /* "file limit exceeded (%s)" */
#define ERR_TV_TRANLIMIT 0x31B6u /* "transfer limit exceeded (%s)" */
#define ERR_TV_NOTALLQLSSUP 0x31B7u /* "not all qualifiers are supported" */
#define ERR_TV_REJECT 0x31B8u /* "transfer was rejected by the remote side" */
#define ERR_TV_TRANSTABLE 0x31B9u /* "failed to load translation table <%s>" */
#define ERR_TV_ATTMKILL 0x31BAu /* "attempting to kill daemon" */
#define ERR_TV_KILLDAEMON 0x31BBu /* "failed to kill daemon" */
#define ERR_TV_DMNKILLED 0x31BCu /* "daemon was killed" */
#define ERR_TV_LPRECOMM 0x31BDu /* "license does not allow pre commands" */
#define ERR_TV_NORPRECOMM 0x31BEu /* "remote pre commands are not allowed" */
#define ERR_TV_PRECOMMFAIL 0x31BFu /* "pre command <%s> failed" */
#define ERR_TV_TEMPLPARF 0x31C0u /* "error parsing template file <%s>" */
#define ERR_TV_TEMPLFILE 0x31C1u /* "failed to open template file <%s>" */
#define ERR_TV_TEMPLSAVE 0x31C2u /* "failed to save template file <%s>" */
#define ERR_TV_PRECOMMNS 0x31C3u /* "pre commands are not supported" */
#define ERR_TV_SCRMPSW 0x31C4u /* "failed to scramble password" */
#define ERR_TV_USCRMPSW 0x31C5u /* "failed to unscramble password" */
#define ERR_TV_NREMPSW 0x31C6u /* "no remote password was specified" */
#define ERR_TV_TVBIND 0x31C7u /* "failed to bind to local address <%s>" */
#define ERR_TV_TVDNBIND 0x31C8u /* "daemon failed to bind to address <%s>" */
#define ERR_TV_NOCONBUF 0x31C9u /* "no connection buffer" */
#define ERR_TV_POSTCOMMFAIL 0x31CAu /* "post command <%s> failed" */
#define ERR_TV_DHOPEN 0x31CBu /* "failed to open diffie-hellman file <%s>" */
#define ERR_TV_DHREAD 0x31CCu /* "failed to read diffie-hellman file <%s>" */
#define ERR_TV_DHPRIME 0x31CDu /* "bad diffie-hellman prime" */
#define ERR_TV_DHGEN 0x31CEu /* "failed to generate diffie-hellman key" */
#define ERR_TV_DHPARTNER 0x31CFu /* "bad diffie-hellman partner key" */
#define ERR_TV_DHPBAD 0x31D0u /* "bad diffie-hellman parameters" */
#define ERR_TV_CENCDIS 0x31D1u /* "encryption is disabled on the client" */
#define ERR_TV_SENCDIS 0x31D2u /* "encryption is disabled on the server" */
#define ERR_TV_DELLIST 0x31D3u /* "failed to delete list file <%s>" */
#define ERR_TV_NTBATCH 0x31D4u /* "batch mode is not supported on this platform" */
#define ERR_TV_DLL 0x31D5u /* "failed to load library <%s>" */
#define ERR_TV_REG 0x31D6u /* "registry error (%s)" */
#define ERR_TV_PROBE 0x31D7u /* "probe of <%s> failed" */
#define ERR_TV_CSSLDIS 0x31D8u /* "ssl is disabled on the client" */
#define ERR_TV_SSSLDIS 0x31D9u /* "ssl is disabled on the server" */
#define ERR_TV_CONNTO 0x31EAu /* "connection timed out (%d seconds)" */
#define ERR_TV_BADJID 0x31EBu /* "bad job id <%s>" */
#define ERR_TV_BADCNT 0x31ECu /* "bad count <%s>" */
#define ERR_TV_NOJOBS 0x31EDu /* "no jobs were found" */
#define ERR_TV_RETLOG 0x31EEu /* "failed to retrieve log <%s>" */
#define ERR_TV_NOUSR 0x31EFu /* "user <%s> does not exist" */
#define ERR_TV_NOGRP 0x31F0u /* "group <%s> does not exist" */
#define ERR_TV_WAITING 0x31F1u /* "waiting for <%s>" */

/* DFMCST (0x9500) */
#define ERR_DFMCST_INITSERVER 0x9501u /* "failed to initialize server <%s>" */
#define ERR_DFMCST_DOWNLOAD 0x9502u /* "failed to download <%s>" */
#define ERR_DFMCST_SETPARAMS 0x9503u /* "failed to set parameters" */
#define ERR_DFMCST_EDGEERROR 0x9504u /* "edge error: %s" */

/* FILTER (0x10000) */
#define ERR_FILTER_ILGSPEC 0x10001u /* "illegal file specification <%s>" */
#define ERR_FILTER_FAIL_CNV_INC 0x10002u /* "failed to convert include specification <%s>" */
#define ERR_FILTER_FAIL_CNV_EXC 0x10003u /* "failed to convert exclude specification <%s>" */
#define ERR_FILTER_SPEC_NOT_SUP 0x10004u /* "file specification <%s> is not supported" */
#define ERR_FILTER_INC_CNV_WARN 0x10005u /* "include specification <%s> was changed in conversion" */
#define ERR_FILTER_EXC_CNV_WARN 0x10006u /* "exclude specification <%s> was changed in conversion" */
#define ERR_FILTER_MORINFO 0x10007u /* "%s" */
#define ERR_FILTER_SPEC_MISMATCH 0x10009u /* "The lengths of recursive and non-recursive File Specifications mismatch." */

/* IISMB (0x10100) */
#define ERR_IISMB_GEN 0x10101u /* "%s" */
#define ERR_IISMB_SNP 0x10102u /* "failed to take snapshot of <%s>" */
#define ERR_IISMB_CREATE 0x10103u /* "failed to create <%s>" */
#define ERR_IISMB_TRANS 0x10104u /* "failed to transfer <%s>" */
#define ERR_IISMB_IMP 0x10105u /* "failed to import <%s>" */
#define ERR_IISMB_DEL 0x10106u /* "failed to delete <%s>" */
#define ERR_IISMB_BRWS 0x10107u /* "failed to browse <%s>" */
#define ERR_IISMB_TOOLS 0x10108u /* "iis tools error: %s" */
#define ERR_IISMB_IISVER 0x10109u /* "iis version <%s> is not supported" */
#define ERR_IISMB_SRVBIND 0x1010Au /* "invalid server binding <%s>" */
#define ERR_IISMB_SSLBIND 0x1010Bu /* "invalid ssl binding <%s>" */
#define ERR_IISMB_NAME 0x1010Cu /* "invalid name <%s>" */
#define ERR_IISMB_VDNAME 0x1010Du /* "invalid virtual directory name <%s>" */
#define ERR_IISMB_CU 0x1010Eu /* "failed to check for update of <%s>" */
#define ERR_IISMB_VALID 0x1010Fu /* "validation of <%s> failed" */
#define ERR_IISMB_NOUNIX 0x10110u /* "not supported on unix" */
#define ERR_IISMB_ADMINS 0x10111u /* "user <%s> is not an administrator" */
#define ERR_IISMB_SUPPORT 0x10112u /* "<%s> is not supported" */
#define ERR_IISMB_CSCRIPT 0x10113u /* "failed to run script <%s>" */
#define ERR_IISMB_NOSRVCOMMENT 0x10114u /* "no server comment for <%s>" */
#define ERR_IISMB_SRVBINDVLD 0x10115u /* "server binding <%s> is not valid" */
#define ERR_IISMB_SSLBINDVLD 0x10116u /* "ssl binding <%s> is not valid" */
#define ERR_IISMB_IPADRSVLD 0x10117u /* "ip address <%s> is not valid" */
#define ERR_IISMB_EXCLUDEDEF 0x10118u /* "default site <%s> is excluded" */
#define ERR_IISMB_PORTFRMT 0x10119u /* "invalid port format <%s>" */
#define ERR_IISMB_UNKTYP 0x1011Au /* "unknown type <%s>" */
#define ERR_IISMB_ALL 0x1011Bu /* "%s" */

/* UPDPWD (0x10200) */
#define ERR_UPDPWD_GEN 0x10201u /* "%s" */
#define ERR_UPDPWD_QMUST 0x10202u /* "qualifier <%s> must be specified" */
#define ERR_UPDPWD_EQMUST 0x10203u /* "either qualifier <%s> or <%s> must be specified" */
#define ERR_UPDPWD_PNM 0x10204u /* "passwords do not match" */
#define ERR_UPDPWD_LNM 0x10205u /* "login name is missing" */
#define ERR_UPDPWD_GETVU 0x10206u /* "failed to get value <%s>" */
#define ERR_UPDPWD_SETVU 0x10207u /* "failed to set value <%s>" */
#define ERR_UPDPWD_DEC 0x10208u /* "failed to decrypt <%s>" */
#define ERR_UPDPWD_SYNERR 0x10209u /* "syntax error near <%s>" */
#define ERR_UPDPWD_SOCKSTART 0x1020Au /* "failed to start socket library" */
#define ERR_UPDPWD_SOCKCLEAN 0x1020Bu /* "failed to clean up socket library" */

/* SLE (0x10300) */
#define ERR_SLE_NOTAVAIL 0x10301u /* "TLS is not available: %s" */
#define ERR_SLE_CONTEXT 0x10302u /* "TLS context error: %s" */
#define ERR_SLE_CERTFILE 0x10303u /* "failed to load certificate <%s> with private key <%s>" */
#define ERR_SLE_CAFILE 0x10304u /* "failed to load CA certificates from <%s>" */
#define ERR_SLE_HANDSHAKE 0x10305u /* "TLS handshake with <%s> failed" */
#define ERR_SLE_VERIFY 0x10306u /* "certificate of <%s> refused by verification: %s" */
#define ERR_SLE_HOSTMISMATCH 0x10307u /* "certificate of the peer does not name host <%s>" */
#define ERR_SLE_PINMISMATCH 0x10308u /* "certificate of <%s> does not match the pinned fingerprint" */
#define ERR_SLE_BADPIN 0x10309u /* "invalid certificate fingerprint <%s>: 64 hexadecimal digits expected" */
#define ERR_SLE_SEND 0x1030Au /* "TLS send to <%s> failed" */
#define ERR_SLE_RECV 0x1030Bu /* "TLS receive from <%s> failed" */
#define ERR_SLE_CLOSE 0x1030Cu /* "TLS close with <%s> failed" */
#define ERR_SLE_NOPEERCERT 0x1030Du /* "the peer sent no certificate" */
#define ERR_SLE_ATTACHED 0x1030Eu /* "session's stream is already held by %s" */
#define ERR_SLE_NOTATTACHED 0x1030Fu /* "no TLS is attached to the session" */
#define ERR_SLE_NOHOST 0x10310u /* "no host name to check the peer's certificate against" */
#define ERR_SLE_SMALLBUF 0x10311u /* "buffer of %d bytes cannot hold %d bytes of %s" */

/* UNKNWN (0x300) */
#define ERR_UNKNWN_UNKNWN 0xFFFFu /* "Unknown error" */

#endif /* VQ_GLOB_ERR_CODES_H */
