// What the values of the common tags of FIX 4.2 to 5.0 are called.
#include "api/fix_dictionary_text.h"

namespace tabulo::api {

// A tag a line, its values behind it. Where versions differ the newest name stands.
const std::string_view FIX_VALUE_NAMES = R"(
4 B=Buy;S=Sell;T=Trade;X=Cross
5 N=New;C=Cancel;R=Replace
13 1=Per unit;2=Percent;3=Absolute;4=Percentage waived, cash discount;5=Percentage waived, enhanced units;6=Per bond
18 0=Stay on offer side;1=Not held;2=Work;3=Go along;4=Over the day;5=Held;6=Participate, do not initiate
18 7=Strict scale;8=Try to scale;9=Stay on bid side;A=No cross;B=OK to cross;C=Call first;D=Percent of volume
18 E=Do not increase;F=Do not reduce;G=All or none;H=Reinstate on system failure;I=Institutions only
18 J=Reinstate on trading halt;K=Cancel on trading halt;L=Last peg;M=Mid-price peg;N=Non-negotiable;O=Opening peg
18 P=Market peg;Q=Cancel on system failure;R=Primary peg;S=Suspend;T=Fixed peg;U=Customer display instruction;V=Netting
18 W=Peg to VWAP;X=Trade along;Y=Try to stop;Z=Cancel if not best;a=Trailing stop peg;b=Strict limit
18 c=Ignore price validity checks;d=Peg to limit price;e=Work to target strategy;f=Intermarket sweep
20 0=New;1=Cancel;2=Correct;3=Status
21 1=Automated, private;2=Automated, public;3=Manual
22 1=CUSIP;2=SEDOL;3=QUIK;4=ISIN;5=RIC;6=ISO currency code;7=ISO country code;8=Exchange symbol
22 9=Consolidated tape symbol;A=Bloomberg symbol;B=Wertpapier;C=Dutch;D=Valoren;E=Sicovam;F=Belgian;G=Common
22 H=Clearing house;I=ISDA/FpML specification;J=Options price reporting authority;L=Letter of credit
22 K=ISDA/FpML URL;M=Assigned by marketplace
25 H=High;M=Medium;L=Low
28 N=New;C=Cancel;R=Replace
29 1=Agent;2=Cross as agent;3=Cross as principal;4=Principal
39 0=New;1=Partially filled;2=Filled;3=Done for day;4=Canceled;5=Replaced;6=Pending cancel;7=Stopped;8=Rejected
39 9=Suspended;A=Pending new;B=Calculated;C=Expired;D=Accepted for bidding;E=Pending replace
40 1=Market;2=Limit;3=Stop;4=Stop limit;5=Market on close;6=With or without;7=Limit or better
40 8=Limit with or without;9=On basis;A=On close;B=Limit on close;C=Forex market;D=Previously quoted
40 E=Previously indicated;F=Forex limit;G=Forex swap;H=Forex previously quoted;I=Funari;J=Market if touched
40 K=Market, leftover as limit;L=Previous fund valuation point;M=Next fund valuation point;P=Pegged
40 Q=Counter-order selection
43 Y=Possible duplicate;N=Original transmission
54 1=Buy;2=Sell;3=Buy minus;4=Sell plus;5=Sell short;6=Sell short exempt;7=Undisclosed;8=Cross;9=Cross short
54 A=Cross short exempt;B=As defined;C=Opposite;D=Subscribe;E=Redeem;F=Lend;G=Borrow
59 0=Day;1=Good till cancel;2=At the opening;3=Immediate or cancel;4=Fill or kill;5=Good till crossing
59 6=Good till date;7=At the close;8=Good through crossing;9=At crossing
61 0=Normal;1=Flash;2=Background
63 0=Regular;1=Cash;2=Next day;3=T+2;4=T+3;5=T+4;6=Future;7=When and if issued;8=Seller's option;9=T+5
63 B=Broken date;C=FX spot next settlement
71 0=New;1=Replace;2=Cancel;3=Preliminary;4=Calculated;5=Calculated without preliminary;6=Reversal
77 O=Open;C=Close;R=Rolled;F=FIFO;N=Close but notify on open;D=Default
87 0=Accepted;1=Block level reject;2=Account level reject;3=Received;4=Incomplete;5=Rejected by intermediary
94 0=New;1=Reply;2=Admin reply
97 Y=Possible resend;N=Original transmission
98 0=None;1=PKCS;2=DES;3=PKCS, DES;4=PGP, DES;5=PGP, DES-MD5;6=PEM, DES-MD5
102 0=Too late to cancel;1=Unknown order;2=Broker option;3=Already pending cancel or replace
102 4=Unable to process mass cancel;5=OrigOrdModTime did not match;6=Duplicate ClOrdID;7=Price exceeds current price
102 8=Price exceeds current price band;18=Invalid price increment;99=Other
103 0=Broker option;1=Unknown symbol;2=Exchange closed;3=Order exceeds limit;4=Too late to enter;5=Unknown order
103 6=Duplicate order;7=Duplicate of a verbally communicated order;8=Stale order;9=Trade along required
103 10=Invalid investor ID;11=Unsupported order characteristic;12=Surveillance option;13=Incorrect quantity
103 14=Incorrect allocated quantity;15=Unknown account;16=Price exceeds current price band
103 18=Invalid price increment;99=Other
113 Y=Receiver reports;N=Sender reports
114 Y=Required;N=Not required
123 Y=Gap fill;N=Sequence reset
127 A=Unknown symbol;B=Wrong side;C=Quantity exceeds order;D=No matching order;E=Price exceeds limit
127 F=Calculation difference;Z=Other
139 1=Regulatory;2=Tax;3=Local commission;4=Exchange fees;5=Stamp;6=Levy;7=Other;8=Markup;9=Consumption tax
139 10=Per transaction;11=Conversion;12=Agent;13=Transfer fee;14=Security lending
141 Y=Reset;N=No reset
150 0=New;1=Partial fill;2=Fill;3=Done for day;4=Canceled;5=Replaced;6=Pending cancel;7=Stopped;8=Rejected
150 9=Suspended;A=Pending new;B=Calculated;C=Expired;D=Restated;E=Pending replace;F=Trade;G=Trade correct
150 H=Trade cancel;I=Order status;J=Trade in a clearing hold;K=Trade released to clearing;L=Triggered by system
160 0=Default;1=Standing instructions provided;2=Specific allocation, overriding;3=Specific allocation, standing
160 4=Specific order, single account;5=Request reject
163 N=New;C=Cancel;R=Replace;T=Restate
165 1=Broker;2=Institution;3=Investor
167 CS=Common stock;PS=Preferred stock;FUT=Future;OPT=Option;MLEG=Multi-leg instrument;CORP=Corporate bond
167 GOVT=Government bond;MF=Mutual fund;WAR=Warrant;REPO=Repurchase;CASH=Cash;FOR=Foreign exchange contract
167 CB=Convertible bond;CP=Commercial paper;CD=Certificate of deposit;MUNI=Municipal bond;TD=Time deposit;NONE=None
167 FXSPOT=FX spot;FXFWD=FX forward;FXSWAP=FX swap;FXNDF=Non-deliverable forward
201 0=Put;1=Call
203 0=Covered;1=Uncovered
204 0=Customer;1=Firm
263 0=Snapshot;1=Snapshot and updates;2=Unsubscribe
264 0=Full book;1=Top of book
265 0=Full refresh;1=Incremental refresh
266 Y=Aggregated;N=Not aggregated
269 0=Bid;1=Offer;2=Trade;3=Index value;4=Opening price;5=Closing price;6=Settlement price;7=Session high price
269 8=Session low price;9=Session VWAP;A=Imbalance;B=Trade volume;C=Open interest;D=Composite underlying price
269 E=Simulated sell price;F=Simulated buy price;G=Margin rate;H=Mid-price;J=Empty book;K=Settle high price
269 L=Settle low price;M=Prior settle price;N=Session high bid;O=Session low offer;P=Early prices
269 Q=Auction clearing price
274 0=Plus tick;1=Zero plus tick;2=Minus tick;3=Zero minus tick
279 0=New;1=Change;2=Delete;3=Delete thru;4=Delete from;5=Overlay
281 0=Unknown symbol;1=Duplicate MDReqID;2=Insufficient bandwidth;3=Insufficient permissions
281 4=Unsupported SubscriptionRequestType;5=Unsupported MarketDepth;6=Unsupported MDUpdateType
281 7=Unsupported AggregatedBook;8=Unsupported MDEntryType;9=Unsupported TradingSessionID;A=Unsupported Scope
281 B=Unsupported OpenCloseSettlFlag;C=Unsupported MDImplicitDelete;D=Insufficient credit
285 0=Canceled or bust;1=Error
297 0=Accepted;1=Canceled for symbol;2=Canceled for security type;3=Canceled for underlying;4=Canceled all;5=Rejected
297 6=Removed from market;7=Expired;8=Query;9=Quote not found;10=Pending;11=Pass;12=Locked market warning
297 13=Cross market warning;16=Active;17=Canceled
298 1=Cancel for symbol;2=Cancel for security type;3=Cancel for underlying;4=Cancel all;5=Cancel specified
300 1=Unknown symbol;2=Exchange closed;3=Request exceeds limit;4=Too late to enter;5=Unknown quote;6=Duplicate quote
300 7=Invalid spread;8=Invalid price;9=Not authorized;99=Other
301 0=No acknowledgement;1=Acknowledge rejects;2=Acknowledge each quote
303 1=Manual;2=Automatic
321 0=Identity and specifications;1=Identity only;2=List security types;3=List securities
325 Y=Unsolicited;N=Asked for
326 1=Opening delay;2=Trading halt;3=Resume;4=No open, no resume;5=Price indication;6=Trading range indication
326 17=Ready to trade;18=Not available for trading;20=Unknown;21=Pre-open;22=Opening rotation;23=Fast market
340 0=Unknown;1=Halted;2=Open;3=Closed;4=Pre-open;5=Pre-close;6=Request rejected
373 0=Invalid tag number;1=Required tag missing;2=Tag not defined for this message type;3=Undefined tag
373 4=Tag without a value;5=Value out of range;6=Incorrect data format;7=Decryption problem;8=Signature problem
373 9=CompID problem;10=SendingTime accuracy problem;11=Invalid MsgType;12=XML validation error
373 13=Tag appears more than once;14=Tag out of required order;15=Repeating group fields out of order
373 16=Incorrect group count;17=Non-data value includes delimiter;99=Other
374 N=New;C=Cancel
378 0=GT corporate action;1=GT renewal;2=Verbal change;3=Repricing;4=Broker option;5=Partial decline of quantity
378 6=Cancel on trading halt;7=Cancel on system failure;8=Market option;9=Canceled, not best;10=Warehouse recap
378 11=Peg refresh;99=Other
380 0=Other;1=Unknown ID;2=Unknown security;3=Unsupported message type;4=Application not available
380 5=Conditionally required field missing;6=Not authorized;7=DeliverTo firm not available;18=Invalid price increment
385 S=Send;R=Receive
388 0=Related to displayed price;1=Related to market price;2=Related to primary price
388 3=Related to local primary price;4=Related to midpoint price;5=Related to last trade price;6=Related to VWAP
394 1=Non-disclosed;2=Disclosed;3=No bidding process
423 1=Percentage;2=Per unit;3=Fixed amount;4=Discount;5=Premium;6=Spread;7=TED price;8=TED yield;9=Yield
427 0=Book all trades on the day;1=Accumulate until filled or expired;2=Accumulate until told otherwise
429 1=Acknowledgement;2=Response;3=Timed;4=Execution started;5=All done;6=Alert
431 1=In bidding process;2=Received for execution;3=Executing;4=Canceling;5=Alert;6=All done;7=Rejected
434 1=Order cancel request;2=Order cancel/replace request
442 1=Single security;2=Individual leg;3=Multi-leg security
447 B=BIC;C=Market participant identifier;D=Proprietary code;E=ISO country code;F=Settlement location;G=MIC
447 H=CSD participant;I=Directed broker
452 1=Executing firm;2=Broker of credit;3=Client ID;4=Clearing firm;5=Investor ID;6=Introducing firm;7=Entering firm
452 8=Locate/lending firm;9=Fund manager client ID;10=Settlement location;11=Order origination trader
452 12=Executing trader;13=Order origination firm;14=Giveup clearing firm;15=Correspondent clearing firm
452 16=Executing system;17=Contra firm;18=Contra clearing firm;19=Sponsoring firm;20=Underlying contra firm
452 21=Clearing organization;22=Exchange;24=Customer account;25=Correspondent clearing organization
452 26=Correspondent broker;27=Buyer/seller;28=Custodian;29=Intermediary;30=Agent;31=Sub-custodian;32=Beneficiary
452 33=Interested party;34=Regulatory body;35=Liquidity provider;36=Entering trader;37=Contra trader
452 38=Position account;39=Contra investor ID;40=Transfer to firm;41=Contra position account;42=Contra exchange
452 44=Order entry operator ID;53=Trader mnemonic;54=Sender location;55=Session ID;62=Report originator
452 66=Market maker;67=Investment firm;73=Execution venue;76=Desk ID
460 1=Agency;2=Commodity;3=Corporate;4=Currency;5=Equity;6=Government;7=Index;8=Loan;9=Money market;10=Mortgage
460 11=Municipal;12=Other;13=Financing
464 Y=Test;N=Production
528 A=Agency;G=Proprietary;I=Individual;P=Principal;R=Riskless principal;W=Agent for other member
529 1=Program trade;2=Index arbitrage;3=Non-index arbitrage;4=Competing market maker;6=Market maker in underlying
529 5=Market maker in security;7=Foreign entity;8=External market participant;A=Riskless arbitrage
530 1=For a security;2=For an underlying;3=For a product;4=For a CFICode;5=For a security type
530 6=For a trading session;7=All orders
531 0=Rejected;1=For a security;2=For an underlying;3=For a product;4=For a CFICode;5=For a security type
531 6=For a trading session;7=All orders
537 0=Indicative;1=Tradeable;2=Restricted tradeable;3=Counter
546 1=Local market;2=National;3=Global
549 1=All or none;2=Immediate or cancel;3=One side;4=Same price
560 0=Valid request;1=Invalid request;2=No instruments found;3=Not authorized;4=Data unavailable;5=Not supported
570 Y=Previously reported;N=Not reported
573 0=Matched;1=Unmatched;2=Advisory
581 1=Customer side;2=Non-customer side;3=House trader;4=Floor trader;6=Cross-margined, non-customer
581 7=Cross-margined, house trader;8=Joint back office
582 1=Own account;2=Proprietary account;3=For another member;4=All other
591 0=Pro rata;1=Do not pro rata
636 Y=Working;N=Not working
638 0=Unchanged;1=Lost priority
694 1=Hit or lift;2=Counter;3=Expired;4=Cover;5=Done away;6=Pass
851 1=Added liquidity;2=Removed liquidity;3=Routed out;4=Auction
856 0=Submit;1=Alleged;2=Accept;3=Decline;4=Addendum;5=No or was;6=Trade report cancel;7=Trade break
924 1=Log on;2=Log off;3=Change password;4=Status of user
926 1=Logged in;2=Not logged in;3=User not recognised;4=Password incorrect;5=Password changed;6=Other
1057 Y=Aggressor;N=Passive
1128 0=FIX 2.7;1=FIX 3.0;2=FIX 4.0;3=FIX 4.1;4=FIX 4.2;5=FIX 4.3;6=FIX 4.4;7=FIX 5.0;8=FIX 5.0 SP1;9=FIX 5.0 SP2
1137 0=FIX 2.7;1=FIX 3.0;2=FIX 4.0;3=FIX 4.1;4=FIX 4.2;5=FIX 4.3;6=FIX 4.4;7=FIX 5.0;8=FIX 5.0 SP1;9=FIX 5.0 SP2
1409 0=Active;1=Password changed;2=Password due to expire;3=Invalid new password;4=Logout complete
1409 5=Invalid user or password;6=Account locked;7=Logons not allowed now;8=Password expired
)";

}  // namespace tabulo::api
