#pragma once

#include <string>

// The names that the appliance's programs agree on.  Every source file that includes this header gets a copy of its
// own, built by that file's static initialisation before main: the composed paths depend on nothing outside this
// header, whatever the order in which the source files are initialised.
namespace qz::common {

// Identity and version.  The running version text comes from VERSION_FILE_PATH.
const std::string PRODUCT_CODE = "KT";
const std::string MODEL_NAME = "PlintaBase-KX";
const std::string VERSION_NUMBER = "0.0.0.1";

// Configuration and installation.
const std::string AGENT_CONF_PATH = "/etc/tormel/plinta/agent/agent.conf";
const std::string CONTROL_CONF_PATH = "/etc/tormel/plinta/agent/control.conf";
const std::string STARTER_CONF_PATH = "/etc/tormel/plinta/agent/starter.conf";
const std::string WEB_CONF_PATH = "/etc/tormel/plinta/web/web.conf";
const std::string AGENT_PASS_UPDATE_PATH = "/etc/tormel/plinta/agent/pass_update";
const std::string WEB_PASS_UPDATE_PATH = "/etc/tormel/plinta/web/pass_update";
const std::string VERSION_FILE_PATH = "/opt/tormel/plinta/version";
const std::string AGENT_LATEST_PATH = "/opt/tormel/plinta/agent/latest";
const std::string TMP_DIR = "/opt/tormel/plinta/var/tmp";
const std::string LOG_DIR = "/var/log/tormel";
const std::string EMMC_MOUNT_DIR = "/mnt/emmc1";
const std::string APP_CONFIGS_INI_PATH = "/mnt/app/configs/configs.ini";
const std::string GADGET_SERIAL_DEVICE = "/dev/ttyGS0";
const std::string UNAME_COMMAND = "uname -a";

// Processes and channels.
const std::string AGENT_WEB_NAME = "agent_web";
const std::string WEB_AGENT_NAME = "web_agent";
const std::string CONTROL_PROCESS_NAME = "kt_control";
const std::string AGENT_PROCESS_NAME = "kt_agent";

// Files exchanged through the temporary directory.
const std::string MD_CAPTURE_PATH = TMP_DIR + "/" + "md_capture.jpg";
const std::string LIVEVIEW_PATH = TMP_DIR + "/" + "liveview.gif";
const std::string LIVEVIEW_FAILED_PATH = TMP_DIR + "/" + "liveview_failed.jpg";
const std::string MD_CAPTURE_TMP_PATH = TMP_DIR + "/" + "md_capture_tmp.jpg";
const std::string LIVEVIEW_TMP_PATH = TMP_DIR + "/" + "liveview_tmp.gif";
const std::string CAPTURE_FIFO_PATH = TMP_DIR + "/" + "capture.fifo";
const std::string EVENT_LOG_PATH = LOG_DIR + "/" + "event.log";
const std::string AGENT_WEB_PATH = TMP_DIR + "/" + AGENT_WEB_NAME;
const std::string WEB_AGENT_PATH = TMP_DIR + "/" + WEB_AGENT_NAME;

// Session states of the appliance's programs, by number.
const std::string SESSION_STATE_NAMES[] = {"IDLE", "LOGIN", "WAIT_COMMAND", "LOGOUT", "TERMINATE", "MAXIMUM"};

} // namespace qz::common
