#include "platform/linux/agent/Agent.h"

#include <string_view>

namespace authentication_agent {
namespace {

struct Agent {
  PolkitAgentListener parent;
  const Credentials* credentials;
};

struct AgentClass {
  PolkitAgentListenerClass parent;
};

// One conversation with the authority, from the question to the verdict.
struct Conversation {
  GTask* task = nullptr;
  PolkitAgentSession* session = nullptr;
  const Credentials* credentials = nullptr;
  bool answered = false;
};

PolkitIdentity* identityNamed(const std::string& name, GList* identities) {
  for (GList* each = identities; each != nullptr; each = each->next) {
    auto* identity = static_cast<PolkitIdentity*>(each->data);
    if (!POLKIT_IS_UNIX_USER(identity)) continue;
    const char* offered = polkit_unix_user_get_name(POLKIT_UNIX_USER(identity));
    if (offered != nullptr && name == offered) return identity;
  }
  return nullptr;
}

// A password is asked for without echo, once. A second question means that it was wrong or that
// more is wanted than there is.
void onRequest(PolkitAgentSession* session, const char*, gboolean echo, gpointer data) {
  auto* conversation = static_cast<Conversation*>(data);
  if (echo != FALSE || conversation->answered) {
    polkit_agent_session_cancel(session);
    return;
  }
  conversation->answered = true;
  polkit_agent_session_response(session, conversation->credentials->password.c_str());
}

void onCompleted(PolkitAgentSession* session, gboolean, gpointer data) {
  auto* conversation = static_cast<Conversation*>(data);
  // The authority has the verdict from its own helper; here only the end matters.
  g_task_return_boolean(conversation->task, TRUE);
  g_object_unref(conversation->task);
  g_object_unref(session);
  delete conversation;
}

void onCancelled(GCancellable*, gpointer session) {
  polkit_agent_session_cancel(POLKIT_AGENT_SESSION(session));
}

void converse(const Agent& agent, PolkitIdentity* identity, const char* cookie, GTask* task) {
  auto* conversation = new Conversation;
  conversation->task = task;
  conversation->credentials = agent.credentials;
  conversation->session = polkit_agent_session_new(identity, cookie);
  g_signal_connect(conversation->session, "request", G_CALLBACK(onRequest), conversation);
  g_signal_connect(conversation->session, "completed", G_CALLBACK(onCompleted), conversation);
  if (GCancellable* cancellable = g_task_get_cancellable(task); cancellable != nullptr) {
    g_signal_connect_object(cancellable, "cancelled", G_CALLBACK(onCancelled),
                            conversation->session, static_cast<GConnectFlags>(0));
  }
  polkit_agent_session_initiate(conversation->session);
}

void initiate(PolkitAgentListener* listener, const char* action, const char*, const char*,
              PolkitDetails*, const char* cookie, GList* identities, GCancellable* cancellable,
              GAsyncReadyCallback callback, gpointer data) {
  const auto* agent = reinterpret_cast<const Agent*>(listener);
  GTask* task = g_task_new(listener, cancellable, callback, data);
  PolkitIdentity* identity = std::string_view(action) == QV_ELEVATOR_ACTION
                                 ? identityNamed(agent->credentials->userName, identities)
                                 : nullptr;
  if (identity != nullptr) {
    converse(*agent, identity, cookie, task);
    return;
  }
  g_task_return_new_error(task, POLKIT_ERROR, POLKIT_ERROR_FAILED, "There is no answer to this");
  g_object_unref(task);
}

gboolean finish(PolkitAgentListener*, GAsyncResult* result, GError** error) {
  return g_task_propagate_boolean(G_TASK(result), error);
}

void initClass(gpointer type, gpointer) {
  auto* listener = static_cast<PolkitAgentListenerClass*>(type);
  listener->initiate_authentication = initiate;
  listener->initiate_authentication_finish = finish;
}

GType agentType() {
  static const GType type =
      g_type_register_static_simple(POLKIT_AGENT_TYPE_LISTENER, "QVAgent", sizeof(AgentClass),
                                    initClass, sizeof(Agent), nullptr, static_cast<GTypeFlags>(0));
  return type;
}

}  // namespace

PolkitAgentListener* makeAgent(const Credentials& credentials) {
  auto* agent = static_cast<Agent*>(g_object_new(agentType(), nullptr));
  agent->credentials = &credentials;
  return &agent->parent;
}

}  // namespace authentication_agent
