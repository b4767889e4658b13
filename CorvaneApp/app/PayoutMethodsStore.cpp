#include "CorvaneApp/app/PayoutMethodsStore.h"

#include <algorithm>
#include <iterator>

#include "CorvaneApp/platform/Log.h"
#include "CorvaneApp/platform/Text.h"

namespace corvane {
namespace {

std::string digitsOf(const std::optional<std::string>& text) {
    std::string digits;
    if (text) {
        std::copy_if(text->begin(), text->end(), std::back_inserter(digits),
                     [](char c) { return c >= '0' && c <= '9'; });
    }
    return digits;
}

bool sameText(const std::optional<std::string>& a, const std::optional<std::string>& b) {
    return a && b && !a->empty() &&
           equalsIgnoringAsciiCase(trimAsciiWhitespace(*a), trimAsciiWhitespace(*b));
}

}  // namespace

PayoutMethodsStore::PayoutMethodsStore(Executor& mainSequence,
                                       std::shared_ptr<BackgroundRunner> runner,
                                       ClientProvider client)
    : main_(mainSequence),
      runner_(std::move(runner)),
      client_(std::move(client)),
      alive_(std::make_shared<PayoutMethodsStore*>(this)) {}

PayoutMethodsStore::~PayoutMethodsStore() {
    alive_.reset();
    // Cancelling joins: a call still waiting on the network is stopped first.
    refreshJob_.reset();
    addJob_.reset();
    actionJob_.reset();
}

bool PayoutMethodsStore::sameDestination(const WorkerPayoutMethod& method,
                                         const AddPayoutMethodRequest& request) {
    if (method.method != request.method) return false;
    switch (request.method) {
        case PayoutMethodType::usdc:
            return sameText(method.walletAddress, request.walletAddress);
        case PayoutMethodType::paypal:
            return sameText(method.email, request.email);
        case PayoutMethodType::ach: {
            const auto routing = digitsOf(request.routingNumber);
            const auto account = digitsOf(request.accountNumber);
            return !routing.empty() && !account.empty() &&
                   digitsOf(method.routingNumber) == routing &&
                   digitsOf(method.accountNumber) == account;
        }
    }
    return false;
}

bool PayoutMethodsStore::isUnavailable(const CoordinatorAPIError& error) {
    if (error.kind() != CoordinatorAPIError::Kind::httpError) return false;
    const long status = error.statusCode();
    return status == 404 || status == 405 || status == 501;
}

std::shared_ptr<const CoordinatorAPIProtocol> PayoutMethodsStore::client() const {
    return client_ ? client_() : nullptr;
}

template <typename Work>
std::unique_ptr<BackgroundJob> PayoutMethodsStore::runInBackground(Work work) {
    std::weak_ptr<PayoutMethodsStore*> alive = alive_;
    Executor* main = &main_;
    return runner_->run([alive, main, work = std::move(work)](std::stop_token stop) mutable {
        auto completion = work(stop);
        if (stop.stop_requested()) return;
        main->post([alive, completion = std::move(completion)]() mutable {
            if (auto self = alive.lock()) completion(**self);
        });
    });
}

void PayoutMethodsStore::changed() {
    observers_.notify();
}

PayoutMethodsStore::Listing PayoutMethodsStore::fetchList(const CoordinatorAPIProtocol& api,
                                                          std::stop_token stop) {
    Listing listing;
    try {
        listing.response = api.payoutMethods(stop);
    } catch (const CoordinatorAPIError& error) {
        listing.failure = isUnavailable(error) ? LoadFailure::unavailable : LoadFailure::failed;
        log::get("PayoutMethodsStore")
            ->error("Payout methods fetch failed: {}", error.errorDescription());
    } catch (const std::exception& error) {
        listing.failure = LoadFailure::failed;
        log::get("PayoutMethodsStore")->error("Payout methods fetch failed: {}", error.what());
    }
    return listing;
}

// A failed load keeps the last list: the owner still sees where money goes.
void PayoutMethodsStore::applyListing(const Listing& listing) {
    if (listing.response) {
        state_.methods = listing.response->methods;
        state_.primaryMethodId = listing.response->primaryMethodId;
        state_.hasLoaded = true;
        state_.loadFailure.reset();
    } else if (listing.failure) {
        state_.loadFailure = listing.failure;
    }
}

void PayoutMethodsStore::refresh() {
    auto api = client();
    const auto generation = ++refreshGeneration_;
    if (!api) {
        refreshJob_.reset();
        state_.isRefreshing = false;
        state_.loadFailure = LoadFailure::noClient;
        changed();
        return;
    }
    state_.isRefreshing = true;
    changed();
    refreshJob_ = runInBackground([api, generation](std::stop_token stop) {
        auto listing = fetchList(*api, stop);
        return [listing, generation](PayoutMethodsStore& self) {
            if (generation != self.refreshGeneration_) return;
            self.refreshJob_.reset();
            self.state_.isRefreshing = false;
            self.applyListing(listing);
            self.changed();
        };
    });
}

void PayoutMethodsStore::add(AddPayoutMethodRequest request, AddDone done) {
    if (addJob_) return;
    auto api = client();
    if (!api) {
        done(CoordinatorAPIError::unauthorized());
        return;
    }
    struct Outcome {
        std::optional<CoordinatorAPIError> error;
        bool uncertain = false;
        Listing listing;
    };
    const bool checkFirst = lastAddUncertain_;
    addJob_ = runInBackground([api, request = std::move(request), checkFirst,
                               done = std::move(done)](std::stop_token stop) mutable {
        Outcome outcome;
        outcome.uncertain = checkFirst;
        try {
            bool listed = false;
            if (checkFirst) {
                // The last add may have gone through without its answer reaching us.
                auto current = api->payoutMethods(stop);
                listed = std::any_of(current.methods.begin(), current.methods.end(),
                                     [&](const auto& m) { return sameDestination(m, request); });
                if (listed) {
                    outcome.listing.response = std::move(current);
                    outcome.uncertain = false;
                }
            }
            if (!listed) {
                try {
                    api->addPayoutMethod(request, stop);
                    outcome.uncertain = false;
                } catch (const CoordinatorAPIError& error) {
                    outcome.uncertain = error.kind() == CoordinatorAPIError::Kind::networkError;
                    throw;
                }
                outcome.listing = fetchList(*api, stop);
            }
        } catch (const CoordinatorAPIError& error) {
            outcome.error = error;
        } catch (const std::exception& error) {
            outcome.error = CoordinatorAPIError::networkError(error.what());
        }
        if (outcome.error) {
            log::get("PayoutMethodsStore")
                ->error("Adding a payout method failed: {}", outcome.error->errorDescription());
        }
        return [outcome = std::move(outcome), done = std::move(done)](PayoutMethodsStore& self) {
            self.addJob_.reset();
            self.lastAddUncertain_ = outcome.uncertain;
            self.applyListing(outcome.listing);
            self.changed();
            done(outcome.error);
        };
    });
}

void PayoutMethodsStore::makePrimary(const WorkerPayoutMethod& method) {
    act(method, ActionFailure::Kind::makePrimary);
}

void PayoutMethodsStore::remove(const WorkerPayoutMethod& method) {
    act(method, ActionFailure::Kind::remove);
}

void PayoutMethodsStore::act(const WorkerPayoutMethod& method, ActionFailure::Kind kind) {
    if (actionJob_) return;
    if (kind == ActionFailure::Kind::remove && method.canDelete == false) {
        state_.methodActionError = ActionFailure{ActionFailure::Kind::cannotRemove, method, {}};
        changed();
        return;
    }
    auto api = client();
    if (!api) {
        state_.loadFailure = LoadFailure::noClient;
        changed();
        return;
    }
    state_.isActing = true;
    state_.methodActionError.reset();
    changed();
    actionJob_ = runInBackground([api, method, kind](std::stop_token stop) {
        std::optional<ActionFailure> failure;
        Listing listing;
        try {
            if (kind == ActionFailure::Kind::makePrimary) {
                api->setPrimaryPayoutMethod(method.id, stop);
            } else {
                api->removePayoutMethod(method.id, stop);
            }
            listing = fetchList(*api, stop);
        } catch (const std::exception& error) {
            std::optional<std::string> detail;
            if (auto* apiError = dynamic_cast<const CoordinatorAPIError*>(&error);
                apiError && apiError->kind() == CoordinatorAPIError::Kind::httpError &&
                apiError->detail() && !apiError->detail()->empty()) {
                detail = apiError->detail();
            }
            failure = ActionFailure{kind, method, std::move(detail)};
            log::get("PayoutMethodsStore")
                ->error("Payout method {} of {} failed: {}",
                        kind == ActionFailure::Kind::makePrimary ? "make-primary" : "removal",
                        method.id, error.what());
        }
        return [failure, listing](PayoutMethodsStore& self) {
            self.actionJob_.reset();
            self.state_.isActing = false;
            self.state_.methodActionError = failure;
            self.applyListing(listing);
            self.changed();
        };
    });
}

}  // namespace corvane
