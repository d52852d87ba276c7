/*
 * The management gateway: every change of configuration comes this way. It checks a request against the
 * object's table, hands it to the service of the object inside a transaction, and answers after the commit.
 */

#include "appliance/mixd/core.h"

namespace mixd
{

namespace
{

using namespace mix::wire;

bool is_chinese(uint8_t language)
{
    return language == language_chinese;
}

/* "value not allowed: mac", from the result's usual text and the attribute it is about. */
refusal refusal_of(const decode_fault &fault)
{
    return fault.attribute ? refusal_about(fault.result, fault.attribute->name) : refusal{fault.result};
}

refusal refusal_of(const store_error &error)
{
    if (error.full())
        return {result_store_failed, "configuration could not be stored: no space left for the store",
                "配置无法保存：存储空间不足"};
    return refusal_about(result_store_failed, error.what());
}

void write_reply(reply &out, const std::optional<refusal> &no, uint8_t language, const read_batch &batch = {})
{
    gateway_reply answer{};
    if (no) {
        const std::string &own = is_chinese(language) ? no->chinese : no->english;
        const char *usual = text_of_result(no->result, language);
        answer.result = no->result;
        answer.response_type = no->response_type;
        answer.text = own.empty() && usual ? std::string_view(usual) : std::string_view(own);
    } else {
        answer.more = batch.more;
        answer.batch = batch.bytes;
    }
    out.bytes.resize(sizeof(reply_header) + gateway_text_max + answer.batch.size());
    writer to(out.bytes);
    encode_reply(answer, to);
    out.bytes.resize(to.size());
}

/* Runs a service's handler in a transaction. Whatever fails in it, nothing of it stays. */
template <class Handler, class Change>
std::optional<refusal> change(core &all, const Handler &handler, const Change &wanted)
{
    try {
        transaction open(all.state());
        std::optional<refusal> no = handler(wanted, open);
        if (!no)
            open.commit();
        return no;
    } catch (const store_error &error) {
        log(priority::error, fmt::format("store: {}", error.what()));
        return refusal_of(error);
    }
}

/* Has the object's service do what is wanted, if that is in order. */
template <class Wanted, class Handlers, class Serve>
std::optional<refusal> served(const decode_fault &fault, const Wanted &wanted, const Handlers &handlers,
                              Serve &&serve)
{
    if (fault.result != result_ok)
        return refusal_of(fault);
    const object_description &object = *wanted.object;
    if (const auto found = handlers.find(object.number); found != handlers.end())
        return serve(found->second);
    return refusal{result_unknown_object,
                   fmt::format("no service takes changes of this object: {}", object.name),
                   fmt::format("没有服务处理该对象：{}", object.name)};
}

int32_t take_record(core &all, const request &asked, reply &out)
{
    record wanted;
    const decode_fault fault = decode_record(asked.bytes, wanted);
    const auto no = served(fault, wanted, all.gateway().records,
                           [&](const record_handler &handler) { return change(all, handler, wanted); });
    write_reply(out, no, wanted.language);
    return 0;
}

/* A read has the form of a commit, and a message type of its own. */
decode_fault decode(const request &asked, commit &wanted, bool is_read)
{
    const decode_fault fault = decode_commit(asked.bytes, wanted);
    if (fault.result == result_ok && (wanted.operation == operation_read) != is_read)
        return {result_unknown_operation};
    return fault;
}

int32_t take_commit(core &all, const request &asked, reply &out)
{
    commit wanted;
    const decode_fault fault = decode(asked, wanted, false);
    const auto no = served(fault, wanted, all.gateway().commits,
                           [&](const commit_handler &handler) { return change(all, handler, wanted); });
    write_reply(out, no, wanted.language);
    return 0;
}

int32_t take_read(core &all, const request &asked, reply &out)
{
    commit wanted;
    read_batch batch;
    const decode_fault fault = decode(asked, wanted, true);
    const auto no = served(fault, wanted, all.gateway().reads,
                           [&](const read_handler &handler) { return handler(wanted, batch); });
    write_reply(out, no, wanted.language, batch);
    return 0;
}

std::unique_ptr<service> make(setup &with)
{
    core &all = with.internals();
    scenario_table table = with.scenario(gateway_name);
    const auto vsys = static_cast<int32_t>(table.number("virtual_system", 0, 0, UINT16_MAX));
    const auto at = static_cast<uint8_t>(gateway_daemon);
    with.serve(at, gateway_record,
               [&all](const request &asked, reply &out) { return take_record(all, asked, out); });
    with.serve(at, gateway_commit,
               [&all](const request &asked, reply &out) { return take_commit(all, asked, out); });
    with.serve(at, mix::wire::gateway_read,
               [&all](const request &asked, reply &out) { return take_read(all, asked, out); });
    with.serve(at, gateway_current_vsys, [vsys](const request &, reply &) { return vsys; });
    return std::make_unique<service>();
}

} // namespace

const service_entry gateway_service = {mix::wire::gateway_name, {}, make};

} // namespace mixd
