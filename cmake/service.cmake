# How the shipped units run the agent, their working folders aside: the service, and further instances.
set(SERVICE_OPTIONS "--background --install_plugins --extdir ext")
set(INSTANCE_OPTIONS "--background --extdir ext")
